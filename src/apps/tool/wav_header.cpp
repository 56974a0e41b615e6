#include "apps/tool/wav_header.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "apps/tool/failure.h"

namespace sonivo::tool {

namespace {

constexpr std::uint64_t kRiffHeadBytes = 12;
constexpr std::uint64_t kChunkHeadBytes = 8;
constexpr std::size_t kPlainFormatBytes = 16;
constexpr std::size_t kExtensibleFormatBytes = 40;
constexpr std::size_t kValidBitsOffset = 18;
constexpr std::size_t kSubFormatOffset = 24;

// Left by who writes into a pipe and can't go back to fill in the size: the audio goes on to the end of the file.
constexpr std::uint64_t kUntilTheEnd = 0xFFFFFFFF;

constexpr std::uint16_t kTagPcm = 1;
constexpr std::uint16_t kTagFloat = 3;
constexpr std::uint16_t kTagExtensible = 0xFFFE;

std::uint32_t little_endian(std::span<const std::byte> bytes) {
  std::uint32_t value = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) value = value << 8 | std::to_integer<std::uint32_t>(bytes[i]);
  return value;
}

std::uint16_t u16_at(std::span<const std::byte> bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(little_endian(bytes.subspan(offset, 2)));
}

std::uint32_t u32_at(std::span<const std::byte> bytes, std::size_t offset) {
  return little_endian(bytes.subspan(offset, 4));
}

bool has_text(std::span<const std::byte> bytes, std::string_view text) {
  return std::equal(text.begin(), text.end(), bytes.begin(),
                    [](char letter, std::byte byte) { return static_cast<std::byte>(letter) == byte; });
}

bool is_chunk_name(std::span<const std::byte> bytes) {
  return std::all_of(bytes.begin(), bytes.begin() + 4,
                     [](std::byte b) { return b >= std::byte{32} && b < std::byte{127}; });
}

std::uint32_t bytes_per_frame(const WavHeader& header) { return header.channels * (header.bits / 8u); }

bool takes(WavRates rates, std::uint32_t rate_hz) {
  if (rates == WavRates::any) return rate_hz >= 1000 && rate_hz <= 384000;
  return rate_hz == 48000 || rate_hz == 44100 || (rates == WavRates::of_devices_and_models && rate_hz == 16000);
}

const char* wanted(WavRates rates) {
  switch (rates) {
    case WavRates::of_devices:
      return "48000 or 44100 Hz";
    case WavRates::of_devices_and_models:
      return "48000, 44100 or 16000 Hz";
    case WavRates::any:
      break;
  }
  return "one from 1000 to 384000 Hz";
}

/// One file being parsed: its name for messages, and reads that know the end of the file.
class Parser {
 public:
  Parser(const std::string& name, std::uint64_t file_bytes, const ReadAt& read_at, WavRates rates)
      : name_(name), file_bytes_(file_bytes), read_at_(read_at), rates_(rates) {}

  WavHeader run() const {
    check_riff();
    std::optional<WavHeader> header;
    for (std::uint64_t offset = kRiffHeadBytes;;) {
      std::array<std::byte, kChunkHeadBytes> head{};
      read(offset, head);
      if (!is_chunk_name(head)) fail("is damaged: there is no chunk where one should start; make or copy it again");
      offset += kChunkHeadBytes;
      const std::uint64_t size = u32_at(head, 4);
      if (has_text(head, "fmt ")) {
        header = parse_format(offset, size);
      } else if (has_text(head, "data")) {
        if (!header) fail("is damaged: its audio comes before its format; make or copy it again");
        header->frames = count_frames(offset, size, bytes_per_frame(*header));
        return *header;
      }
      offset += size + size % 2;
    }
  }

 private:
  [[noreturn]] void fail(const std::string& text) const { throw Failure("'" + name_ + "' " + text); }

  [[noreturn]] void fail_as_foreign() const {
    fail("is not a WAV file; convert it to one first, for example with sox");
  }

  void read(std::uint64_t offset, std::span<std::byte> bytes) const {
    if (offset > file_bytes_ || bytes.size() > file_bytes_ - offset || read_at_(offset, bytes) != bytes.size()) {
      fail("is truncated: it ends before its audio starts; make or copy it again");
    }
  }

  void check_riff() const {
    if (file_bytes_ == 0) fail("is empty; give a WAV file with audio in it");
    std::array<std::byte, kRiffHeadBytes> head{};
    const bool whole = file_bytes_ >= head.size() && read_at_(0, head) == head.size();
    if (!whole || !has_text(std::span(head).subspan(8), "WAVE")) fail_as_foreign();
    for (const std::string name : {"RF64", "BW64"}) {
      if (has_text(head, name))
        fail("is a 64-bit WAV file (" + name + "), which is not supported; convert it to plain WAV");
    }
    if (!has_text(head, "RIFF")) fail_as_foreign();
  }

  WavHeader parse_format(std::uint64_t offset, std::uint64_t size) const {
    if (size < kPlainFormatBytes) fail("is damaged: its format is too short; make or copy it again");
    std::array<std::byte, kExtensibleFormatBytes> bytes{};
    read(offset, std::span(bytes).first(std::min<std::uint64_t>(size, bytes.size())));

    WavHeader header;
    header.channels = u16_at(bytes, 2);
    header.rate_hz = u32_at(bytes, 4);
    header.bits = u16_at(bytes, 14);

    std::uint16_t tag = u16_at(bytes, 0);
    const bool extensible = tag == kTagExtensible && size >= kExtensibleFormatBytes;
    if (extensible) tag = u16_at(bytes, kSubFormatOffset);
    if (tag != kTagPcm && tag != kTagFloat) {
      fail("is coded (format " + std::to_string(tag) + "); convert it to PCM or float samples");
    }
    header.coding = tag == kTagFloat ? WavCoding::ieee_float : WavCoding::integer_pcm;
    check_support(header);
    check_agreement(header, u16_at(bytes, 12), u32_at(bytes, 8));
    if (extensible) check_valid_bits(header, u16_at(bytes, kValidBitsOffset));
    return header;
  }

  void check_support(const WavHeader& header) const {
    if (header.channels < 1 || header.channels > 4) {
      fail("has " + std::to_string(header.channels) + " channels; give one with 1 to 4");
    }
    if (!takes(rates_, header.rate_hz)) {
      fail("has a sampling rate of " + std::to_string(header.rate_hz) + " Hz; convert it to " + wanted(rates_));
    }
    const bool is_float = header.coding == WavCoding::ieee_float;
    const bool supported = header.bits == 32 || (!is_float && (header.bits == 16 || header.bits == 24));
    if (!supported) {
      fail("has " + std::to_string(header.bits) + "-bit " + (is_float ? "float " : "") +
           "samples; convert them to 16, 24 or 32-bit PCM or 32-bit float");
    }
  }

  void check_agreement(const WavHeader& header, std::uint16_t block_align, std::uint32_t byte_rate) const {
    const std::uint32_t frame_bytes = bytes_per_frame(header);
    if (block_align != frame_bytes) {
      fail("is damaged: its frames have " + std::to_string(block_align) + " bytes where its format needs " +
           std::to_string(frame_bytes) + "; make or copy it again");
    }
    if (byte_rate != header.rate_hz * frame_bytes) {
      fail("is damaged: its seconds have " + std::to_string(byte_rate) + " bytes where its format needs " +
           std::to_string(header.rate_hz * frame_bytes) + "; make or copy it again");
    }
  }

  void check_valid_bits(const WavHeader& header, std::uint16_t valid_bits) const {
    if (valid_bits < 1 || valid_bits > header.bits) {
      fail("is damaged: it says that " + std::to_string(valid_bits) + " bits of its " + std::to_string(header.bits) +
           "-bit samples are valid; make or copy it again");
    }
  }

  std::uint64_t count_frames(std::uint64_t offset, std::uint64_t size, std::uint32_t frame_bytes) const {
    const std::uint64_t present = file_bytes_ - offset;
    if (size == kUntilTheEnd) {
      if (present > kUntilTheEnd) fail("holds more than the 4 GiB of a WAV file; cut it into shorter ones");
      size = present - present % frame_bytes;  // a byte of padding or an interrupted writer's last frame is left
    }
    if (size > present) {
      fail("is truncated: its header promises " + std::to_string(size) + " bytes of audio, the file holds " +
           std::to_string(present) + "; make or copy it again");
    }
    if (size == 0 && present >= frame_bytes) {
      fail("promises no audio in its header, though " + std::to_string(present) +
           " bytes follow; if they are audio, mend it with sox --ignore-length");
    }
    if (size == 0) fail("holds no audio; give a WAV file with audio in it");
    if (size % frame_bytes != 0) {
      fail("is damaged: its " + std::to_string(size) + " bytes of audio do not end with a whole frame of " +
           std::to_string(frame_bytes) + "; make or copy it again");
    }
    return size / frame_bytes;
  }

  const std::string& name_;
  std::uint64_t file_bytes_;
  const ReadAt& read_at_;
  WavRates rates_;
};

}  // namespace

WavHeader read_wav_header(const std::string& name, std::uint64_t file_bytes, const ReadAt& read_at, WavRates rates) {
  return Parser(name, file_bytes, read_at, rates).run();
}

}  // namespace sonivo::tool
