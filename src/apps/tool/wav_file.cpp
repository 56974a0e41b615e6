#include "apps/tool/wav_file.h"

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

#include "apps/tool/failure.h"

namespace sonivo::tool {

namespace {

constexpr std::size_t kPieceFrames = 4096;
constexpr std::size_t kMaxChannels = 4;
constexpr std::size_t kMaxWavBytes = std::numeric_limits<std::uint32_t>::max() - 1024;  // room for the head

struct CloseSound {
  void operator()(SNDFILE* sound) const { sf_close(sound); }
};
using Sound = std::unique_ptr<SNDFILE, CloseSound>;

/// A file descriptor that closes itself.
class InputFile {
 public:
  explicit InputFile(const std::string& path)
      : path_(path), descriptor_(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    if (descriptor_ < 0) {
      throw Failure("cannot open '" + path + "': " + std::strerror(errno) + "; check its name and its permissions");
    }
  }
  ~InputFile() { ::close(descriptor_); }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  int descriptor() const { return descriptor_; }

  std::uint64_t size() const {
    struct stat status {};
    ::fstat(descriptor_, &status);
    if (S_ISDIR(status.st_mode)) throw Failure("'" + path_ + "' is a folder; give a WAV file");
    if (!S_ISREG(status.st_mode)) {
      throw Failure("'" + path_ + "' is a pipe or a device; write the audio to a file first");
    }
    return static_cast<std::uint64_t>(status.st_size);
  }

  std::size_t read_at(std::uint64_t offset, std::span<std::byte> bytes) const {
    const ssize_t count = ::pread(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    return count < 0 ? 0 : static_cast<std::size_t>(count);
  }

 private:
  const std::string& path_;
  int descriptor_;
};

/// Appends the next frames, at most a chunk, and answers how many there were.
std::size_t append_chunk(SNDFILE* sound, WavCoding coding, PcmAudio& audio) {
  const auto frames = static_cast<sf_count_t>(kPieceFrames);
  if (coding == WavCoding::ieee_float) {
    std::array<float, kPieceFrames * kMaxChannels> chunk;
    const auto count = static_cast<std::size_t>(sf_readf_float(sound, chunk.data(), frames));
    for (const float sample : std::span(chunk).first(count * audio.channels)) append_float(audio, sample);
    return count;
  }
  std::array<int, kPieceFrames * kMaxChannels> chunk;
  const auto count = static_cast<std::size_t>(sf_readf_int(sound, chunk.data(), frames));
  for (const int sample : std::span(chunk).first(count * audio.channels)) append_left_justified(audio, sample);
  return count;
}

/// An open WAV file with a head that both readers understand alike.
struct WavReader {
  WavReader(const std::string& path, const InputFile& file, WavRates rates)
      : header(read_wav_header(
            path, file.size(),
            [&file](std::uint64_t offset, std::span<std::byte> bytes) { return file.read_at(offset, bytes); }, rates)) {
    SF_INFO info{};
    sound.reset(sf_open_fd(file.descriptor(), SFM_READ, &info, SF_FALSE));
    const bool agrees = sound && info.channels == header.channels && std::cmp_equal(info.samplerate, header.rate_hz) &&
                        std::cmp_equal(info.frames, header.frames);
    if (!agrees) throw Failure("'" + path + "' is damaged: its chunks contradict each other; make or copy it again");
  }

  WavHeader header;
  Sound sound;
};

Failure incomplete(const std::string& path) {
  return Failure("cannot read all of '" + path + "'; make or copy it again");
}

[[noreturn]] void fail_to_write(const OutputFile& file, const std::string& reason) {
  throw Failure("cannot write '" + file.name() + "': " + reason + "; make room or choose another folder");
}

Sound open_to_write(const OutputFile& file, std::uint32_t rate_hz, int channels, int coding, std::uint64_t bytes) {
  if (bytes > kMaxWavBytes) {
    throw Failure("the result does not fit into a WAV file of 4 GiB; process a shorter one");
  }
  SF_INFO info{};
  info.samplerate = static_cast<int>(rate_hz);
  info.channels = channels;
  info.format = SF_FORMAT_WAV | coding;
  errno = 0;
  Sound sound(sf_open_fd(file.descriptor(), SFM_WRITE, &info, SF_FALSE));
  if (!sound) fail_to_write(file, sf_strerror(nullptr));
  // It holds the time of writing, and peaks that raw writing leaves unmeasured.
  sf_command(sound.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
  return sound;
}

void write_raw(const OutputFile& file, SNDFILE* sound, std::span<const std::byte> bytes) {
  const auto size = static_cast<sf_count_t>(bytes.size());
  errno = 0;
  if (sf_write_raw(sound, bytes.data(), size) == size) return;
  fail_to_write(file, errno != 0 ? std::strerror(errno) : "the disk took only a part of it");
}

void close(const OutputFile& file, Sound sound) {
  errno = 0;
  if (sf_close(sound.release()) == 0) return;
  fail_to_write(file, errno != 0 ? std::strerror(errno) : "the disk took only a part of it");
}

void write_sound(OutputFile& file, std::uint32_t rate_hz, int channels, int coding, std::span<const std::byte> bytes) {
  Sound sound = open_to_write(file, rate_hz, channels, coding, bytes.size());
  write_raw(file, sound.get(), bytes);
  close(file, std::move(sound));
}

}  // namespace

PcmAudio read_wav(const std::string& path, std::optional<std::uint16_t> bits, WavRates rates) {
  const InputFile file(path);
  const WavReader reader(path, file, rates);
  PcmAudio audio;
  audio.rate_hz = reader.header.rate_hz;
  audio.channels = reader.header.channels;
  audio.bits = bits.value_or(reader.header.bits > 16 ? 24 : 16);
  audio.bytes.reserve(reader.header.frames * audio.bytes_per_frame());
  while (append_chunk(reader.sound.get(), reader.header.coding, audio) > 0) {
  }
  if (audio.frames() != reader.header.frames) throw incomplete(path);
  return audio;
}

FloatAudio read_wav_float(const std::string& path) {
  const InputFile file(path);
  const WavReader reader(path, file, WavRates::of_devices);
  FloatAudio audio{reader.header.rate_hz, reader.header.channels, {}};
  audio.samples.resize(reader.header.frames * audio.channels);
  const auto frames = static_cast<sf_count_t>(reader.header.frames);
  if (sf_readf_float(reader.sound.get(), audio.samples.data(), frames) != frames) throw incomplete(path);
  return audio;
}

void write_wav(OutputFile& file, const PcmAudio& audio) {
  const int coding = audio.bits == 24 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_16;
  write_sound(file, audio.rate_hz, audio.channels, coding, std::as_bytes(std::span(audio.bytes)));
}

void write_wav(OutputFile& file, const FloatAudio& audio) {
  write_sound(file, audio.rate_hz, audio.channels, SF_FORMAT_FLOAT, std::as_bytes(std::span(audio.samples)));
}

struct WavInput::Open {
  Open(const std::string& name, WavRates rates) : path(name), file(path), reader(path, file, rates) {}

  std::string path;
  InputFile file;
  WavReader reader;
  std::uint64_t frames_read = 0;
};

WavInput::WavInput(const std::string& path, WavRates rates) : open_(std::make_unique<Open>(path, rates)) {}
WavInput::~WavInput() = default;

const WavHeader& WavInput::header() const { return open_->reader.header; }

std::size_t WavInput::read(std::span<float> interleaved) {
  const std::uint64_t room = interleaved.size() / header().channels;
  const std::uint64_t wanted = std::min(room, header().frames - open_->frames_read);
  const auto frames = static_cast<sf_count_t>(wanted);
  if (sf_readf_float(open_->reader.sound.get(), interleaved.data(), frames) != frames) throw incomplete(open_->path);
  open_->frames_read += wanted;
  return static_cast<std::size_t>(wanted);
}

struct WavOutput::Open {
  OutputFile& file;
  Sound sound;
};

WavOutput::WavOutput(OutputFile& file, std::uint32_t rate_hz, std::uint16_t channels, std::uint64_t frames)
    : open_(
          new Open{file, open_to_write(file, rate_hz, channels, SF_FORMAT_FLOAT, frames * channels * sizeof(float))}) {}
WavOutput::~WavOutput() = default;

void WavOutput::write(std::span<const float> interleaved) {
  write_raw(open_->file, open_->sound.get(), std::as_bytes(interleaved));
}

void WavOutput::close() { tool::close(open_->file, std::move(open_->sound)); }

}  // namespace sonivo::tool
