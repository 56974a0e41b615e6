#include "enhance/rec_file.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "enhance/log.h"
#include "enhance/pcm16.h"
#include "enhance/result.h"

namespace sonivo {

namespace {

constexpr std::size_t kHeaderBytes = 44;

/// Writes numbers, least significant byte first, and names one behind the other.
class HeaderWriter {
 public:
  void name(const char* text) {
    std::memcpy(header_.data() + at_, text, std::strlen(text));
    at_ += std::strlen(text);
  }
  void number(std::uint32_t value, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; ++i) header_[at_++] = static_cast<std::uint8_t>(value >> (8 * i));
  }
  const std::array<std::uint8_t, kHeaderBytes>& header() const { return header_; }

 private:
  std::array<std::uint8_t, kHeaderBytes> header_{};
  std::size_t at_ = 0;
};

}  // namespace

int RecFile::open(const char* filename) {
  if (is_open()) {
    log_text(LogLevel::error, "OpenRecFile: rec file already open, %s, return ERROR_AI_SPEECH_ENHANCE_FILE_OPEN\n",
             filename);
    return ERROR_AI_SPEECH_ENHANCE_FILE_OPEN;
  }
  file_.reset(std::fopen(filename, "wb"));
  if (file_ != nullptr) return 0;
  log_text(LogLevel::error, "OpenRecFile: file open error, %s, return ERROR_AI_SPEECH_ENHANCE_FILE_OPEN\n", filename);
  return ERROR_AI_SPEECH_ENHANCE_FILE_OPEN;
}

int RecFile::begin(std::uint16_t channels, std::uint16_t frames) {
  try {
    block_.resize(std::size_t{channels} * frames);
  } catch (const std::bad_alloc&) {
    file_.reset();
    log_text(LogLevel::error, "OpenRecFile: wav_rec_buff=NULL, return ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY\n");
    return ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY;
  }
  constexpr std::array<std::uint8_t, kHeaderBytes> kPlaceholder{};
  const bool written = std::fwrite(kPlaceholder.data(), 1, kHeaderBytes, file_.get()) == kHeaderBytes;
  if (!written || std::fflush(file_.get()) != 0) {
    block_ = std::vector<std::int16_t>();
    file_.reset();
    log_text(LogLevel::error,
             "OpenRecFile: file write error, wav_rec header, return ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY\n");
    return ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY;
  }
  samples_ = 0;
  return 0;
}

int RecFile::write(const float* samples, std::size_t count) {
  if (!is_open() || block_.empty()) return ERROR_AI_SPEECH_ENHANCE_NO_INIT;
  while (count > 0) {
    const std::size_t piece = std::min(count, block_.size());
    std::transform(samples, samples + piece, block_.begin(), to_pcm16);
    const std::size_t written = std::fwrite(block_.data(), sizeof(std::int16_t), piece, file_.get());
    if (written < piece) return ERROR_AI_SPEECH_ENHANCE_FILE_WRITE;
    samples_ += static_cast<std::uint32_t>(written);
    samples += piece;
    count -= piece;
  }
  return 0;
}

int RecFile::close(std::uint16_t channels, float rate_hz) {
  if (!is_open()) return ERROR_AI_SPEECH_ENHANCE_NO_INIT;
  const std::uint32_t data_bytes = channels * samples_ * 2u;
  const auto rate = static_cast<std::uint32_t>(rate_hz);
  HeaderWriter header;
  header.name("RIFF");
  header.number(data_bytes + 36, 4);
  header.name("WAVEfmt ");
  header.number(16, 4);
  header.number(1, 2);  // PCM
  header.number(channels, 2);
  header.number(rate, 4);
  header.number(rate * channels * 2, 4);
  header.number(channels * 2u, 2);
  header.number(16, 2);
  header.name("data");
  header.number(data_bytes, 4);
  std::rewind(file_.get());
  std::fwrite(header.header().data(), 1, kHeaderBytes, file_.get());
  block_ = std::vector<std::int16_t>();
  file_.reset();
  return 0;
}

}  // namespace sonivo
