#include "enhance/block_dump.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "enhance/local_time.h"
#include "enhance/pcm16.h"

namespace sonivo {

int BlockDump::open(float rate_hz, std::uint16_t channels, std::uint16_t frames, float add_buff_in_ms,
                    float add_buff_out_ms, std::uint16_t active) {
  *this = {};
  const char* const folder = std::getenv("AI_SPEECH_ENHANCE_DUMP_DIR");
  if (folder == nullptr) return 1;
  try {
    block_.resize(std::size_t{channels} * frames);
  } catch (const std::bad_alloc&) {
    return 1;
  }
  const std::string name = std::string(folder) + "/dump_" + LocalTime::now().for_file_name().data();
  File journal(std::fopen((name + ".csv").c_str(), "w"));
  samples_[0].reset(std::fopen((name + "_in.pcm").c_str(), "wb"));
  samples_[1].reset(std::fopen((name + "_out.pcm").c_str(), "wb"));
  if (journal == nullptr || samples_[0] == nullptr || samples_[1] == nullptr) {
    *this = {};
    return 1;
  }
  journal_ = std::move(journal);
  std::fprintf(journal_.get(), "Date, Time, timr(ms), Function, No., EnhanceActive, Message\n");
  opened_ = std::chrono::steady_clock::now();
  begin_line("OPEN ");
  std::fprintf(journal_.get(), " %d, %d, Open: %dHz / length=%d / ch=%d / in-ms=%f / out-ms=%f\n", blocks_[0], active,
               static_cast<int>(rate_hz), frames, channels, static_cast<double>(add_buff_in_ms),
               static_cast<double>(add_buff_out_ms));
  return 0;
}

void BlockDump::begin_line(const char* function) {
  const LocalTime now = LocalTime::now();
  const auto since_open = std::chrono::steady_clock::now() - opened_;
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(since_open).count();
  std::fprintf(journal_.get(), "%04d/%02d/%02d, %02d:%02d:%02d.%03d, %lu, [%s],", now.year, now.month, now.day,
               now.hour, now.minute, now.second, now.millisecond, static_cast<unsigned long>(ms), function);
}

void BlockDump::block(Kind kind, const char* text, std::span<const float> data, std::uint16_t active) {
  if (!is_on() || data.data() == nullptr) return;
  const auto i = static_cast<std::size_t>(kind);
  begin_line(kind == Kind::input ? "INPUT " : "OUTPUT");
  std::fprintf(journal_.get(), " %d, %d, %s, \n", blocks_[i], active, text);
  std::fflush(journal_.get());
  const auto samples = data.first(std::min(data.size(), block_.size()));
  std::transform(samples.begin(), samples.end(), block_.begin(), to_pcm16);
  std::fwrite(block_.data(), sizeof(std::int16_t), samples.size(), samples_[i].get());
  ++blocks_[i];
}

void BlockDump::close() {
  if (!is_on()) return;
  begin_line("CLOSE ");
  std::fprintf(journal_.get(), "\n");
  *this = {};
}

}  // namespace sonivo
