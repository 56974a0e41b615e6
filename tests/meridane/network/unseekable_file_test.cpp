// Networks from a stream that can't tell its size.

#include <gtest/gtest.h>

#include "../support/network_samples.h"
#include "../support/streams.h"

namespace meridane::test {
namespace {

const char* const kForms[] = {"application/meridane-bin", "text/xml"};

void load(NNParameter& network, std::streambuf& pipe, const std::string& mime) {
  std::istream stream(&pipe);
  network.load(stream, mime);
}

TEST(APipe, GivesTheNetworkOfTheFile) {
  const std::string bytes = sample_network();
  for (const char* form : kForms) {
    Pipe pipe(dump_of(*network_of(bytes), form));
    NNParameter network;
    load(network, pipe, form);
    EXPECT_EQ(dump_of(network), bytes) << form;
  }
}

TEST(APipe, CutAnywhereIsAnError) {
  for (const char* form : kForms) {
    const std::string whole = dump_of(*network_of(sample_network()), form);
    const std::size_t end = whole.find_last_not_of('\n') + 1;
    for (std::size_t length = 0; length < end; length += 7) {
      Pipe pipe(whole.substr(0, length));
      NNParameter network;
      EXPECT_NE(failure_of([&] { load(network, pipe, form); }), "") << form << ", " << length << " of " << end;
    }
  }
}

TEST(APipe, ThatClaimsMoreThanAPipeMayHoldIsAnError) {
  const std::string head = network_head(1, 1, 1, 0) + layer_bytes("a", "Embedding", "Embedding");
  for (const std::int64_t rows : {std::int64_t{1} << 27, std::int64_t{1} << 62}) {
    Pipe pipe(head + bytes_of(rows) + bytes_of<std::int64_t>(1) + "abcd");
    NNParameter network;
    EXPECT_EQ(failure_of([&] { load(network, pipe, kForms[0]); }), "Unexpected end of the stream") << rows;
  }
}

TEST(APipe, ThatDoesNotEndIsAnError) {
  EndlessPipe blanks(' ');
  NNParameter network;
  EXPECT_EQ(failure_of([&] { load(network, blanks, "text/xml"); }), "The text has no end");
}

}  // namespace
}  // namespace meridane::test
