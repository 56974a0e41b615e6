#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace sonivo {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// What goes through the third chain, block by block, in three files of the folder AI_SPEECH_ENHANCE_DUMP_DIR:
/// "dump_<local time>.csv", the journal, and "dump_<local time>_in.pcm" and "_out.pcm", 16-bit samples. Unset: nothing.
/// Writes on the thread that calls, which is the audio thread: for the bench only.
class BlockDump {
 public:
  enum class Kind { input = 0, output = 1 };

  /// 0, or 1 when nothing is dumped. active: whether the enhancement is on.
  int open(float rate_hz, std::uint16_t channels, std::uint16_t frames, float add_buff_in_ms, float add_buff_out_ms,
           std::uint16_t active);
  /// data: interleaved frames, at most as many as open was told count; null: nothing happens.
  void block(Kind kind, const char* text, std::span<const float> data, std::uint16_t active);
  void close();
  bool is_on() const { return journal_ != nullptr; }

 private:
  /// "2026/01/31, 23:59:59.999, <ms since open>, [<function>],"
  void begin_line(const char* function);

  File journal_;
  File samples_[2];                  // by kind
  int blocks_[2] = {0, 0};           // dumped so far
  std::vector<std::int16_t> block_;  // converted
  std::chrono::steady_clock::time_point opened_;
};

}  // namespace sonivo
