// Records of recurrent layers with one byte changed.

#include "bidirectional_reference.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

// Whatever stands in a record, it's refused by the engine's own exception or makes a layer that runs.
TEST(RecurrentRecords, SurviveAnyByteChanged) {
  constexpr Eigen::Index kCells = 2, kRows = 3;
  const MinibatchPtr x = minibatch(Dice(3).matrix(kRows, 4));
  for (const Form form : {Form::plain, Form::half, Form::codes}) {
    for (const std::string family : {"LSTM", "ULSTM", "BLSTM", "LCBLSTM"}) {
      const BothDirections p(52, kCells, kRows);
      Record one(prefix_of(form) + family);
      Direction direction = p.forward;
      direction.has_lateral_bias = family == "ULSTM";
      const std::string record = family == "BLSTM"     ? bidirectional_record(family, form, p, {0})
                                 : family == "LCBLSTM" ? bidirectional_record(family, form, p, {3, 2, 1, 0})
                                                       : add_direction(one, direction, form).bytes();
      int runs = 0;
      for (std::size_t at = 0; at < record.size(); ++at) {
        for (const int value : {0x00, 0x01, 0x7f, 0xff}) {
          std::string changed = record;
          changed[at] = static_cast<char>(value);
          try {
            const auto layer = layer_in(form, prefix_of(form) + family, changed);
            const MinibatchPtr y = layer->forward({x}, layer->create_state());
            EXPECT_LE(y->content().cols(), 4);
            ++runs;
          } catch (const BaseRuntimeError&) {
          }
        }
      }
      EXPECT_GT(runs, 0) << prefix_of(form) << family;
    }
  }
}

}  // namespace
}  // namespace meridane::test
