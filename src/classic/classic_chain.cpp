#include "classic/classic_chain.h"

#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "classic/beam_forming_channel.h"
#include "classic/block_framing.h"
#include "classic/key_cancel_channel.h"
#include "classic/param_check.h"
#include "classic/result.h"

namespace sonivo {

namespace classic {

/// An open chain: always four channels, of which the first ones are active.
template <class Channel>
struct Engine {
  Engine(std::shared_ptr<const typename Channel::Param> param, float rate, std::uint16_t active, std::uint16_t length)
      : framing(length), channels(active), samplingRate(rate) {
    for (auto& c : channel) c = std::make_unique<Channel>(param);
    note_equals();
  }

  void execute(float* inout) {
    framing.execute(inout, channels, [this](const Frames& in, Frames& out) {
      for (std::size_t c = 0; c < channels; ++c) {
        if (as_first[c]) {
          out[c] = out[0];
        } else {
          channel[c]->process(in, c, out);
        }
      }
    });
  }

  /// The first channel comes last: where memory ends before it, the channels that it still stands for are as it is.
  void set_param(std::shared_ptr<const typename Channel::Param> param) {
    for (std::size_t c = kChannels; c-- > 0;) {
      channel[c]->reset(param);
      as_first[c] = false;
    }
    note_equals();
  }

  /// Channels that fall silent keep the states that they would have by now.
  void set_channels(std::uint16_t active) {
    if constexpr (Channel::kHearSame) {
      for (std::size_t c = active; c < kChannels; ++c) {
        if (as_first[c]) channel[c]->copy_states(*channel[0]);
        as_first[c] = false;
      }
    }
    channels = active;
  }

  void note_equals() {
    for (std::size_t c = 0; c < kChannels; ++c) as_first[c] = Channel::kHearSame && c > 0 && c < channels;
  }

  BlockFraming framing;
  std::uint16_t channels;
  float samplingRate;
  std::array<std::unique_ptr<Channel>, kChannels> channel;
  /// Channels that have heard the same as the first since the last reset: it stands for them.
  std::array<bool, kChannels> as_first;
};

namespace {

bool is_rate(float rate) { return rate == 44100.0f || rate == 48000.0f; }
bool is_channel_count(std::uint16_t channels) { return channels >= 1 && channels <= kChannels; }

/// The caller's bytes, which may stand at any address.
template <class Param>
std::shared_ptr<const Param> copy_of(const void* bytes) {
  auto param = std::make_shared<Param>();
  std::memcpy(param.get(), bytes, sizeof *param);
  return param;
}

template <class Channel>
bool fits(const typename Channel::Param& param) {
  return param.version_major == Channel::kVersionMajor && usable(param);
}

}  // namespace
}  // namespace classic

template <class Channel>
ClassicChain<Channel>::ClassicChain() = default;

template <class Channel>
ClassicChain<Channel>::~ClassicChain() {
  Close();
}

template <class Channel>
int ClassicChain<Channel>::Open(const void* param, float samplingRate, std::uint16_t channels,
                                std::uint16_t dataLength) {
  Close();
  if (param == nullptr) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  if (!classic::is_rate(samplingRate)) return ERROR_BEAMFORMING_KEY_CANCEL_SAMPLING_RATE;
  if (!classic::is_channel_count(channels)) return ERROR_BEAMFORMING_KEY_CANCEL_CHANNEL_NUM;
  if (dataLength == 0) return ERROR_BEAMFORMING_KEY_CANCEL_DATA_LENGTH;
  try {
    const auto blob = classic::copy_of<typename Channel::Param>(param);
    if (!classic::fits<Channel>(*blob)) return ERROR_BEAMFORMING_KEY_CANCEL_PARAM_VERSION;
    auto engine = std::make_unique<classic::Engine<Channel>>(blob, samplingRate, channels, dataLength);
    std::scoped_lock lock(mutex_);
    engine_ = std::move(engine);
  } catch (const std::bad_alloc&) {
    return ERROR_BEAMFORMING_KEY_CANCEL_MEMORY_EMPTY;
  }
  return 0;
}

template <class Channel>
int ClassicChain<Channel>::Close() {
  std::scoped_lock lock(mutex_);
  if (!engine_) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  engine_.reset();
  return 0;
}

template <class Channel>
int ClassicChain<Channel>::Execute(float* inout) {
  std::scoped_lock lock(mutex_);
  if (!engine_ || inout == nullptr) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  engine_->execute(inout);
  return 0;
}

template <class Channel>
int ClassicChain<Channel>::GetVersion(std::uint16_t* major, std::uint16_t* minor) const {
  if (major == nullptr || minor == nullptr) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  *major = Channel::kVersionMajor;
  *minor = Channel::kVersionMinor;
  return 0;
}

template <class Channel>
int ClassicChain<Channel>::GetParamSize(std::uint32_t* size) const {
  if (size == nullptr) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  *size = sizeof(typename Channel::Param);
  return 0;
}

template <class Channel>
int ClassicChain<Channel>::SetParam(const void* param) {
  std::scoped_lock lock(mutex_);
  if (!engine_ || param == nullptr) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  try {
    const auto blob = classic::copy_of<typename Channel::Param>(param);
    if (!classic::fits<Channel>(*blob)) return ERROR_BEAMFORMING_KEY_CANCEL_PARAM_VERSION;
    engine_->set_param(blob);
  } catch (const std::bad_alloc&) {
    return ERROR_BEAMFORMING_KEY_CANCEL_MEMORY_EMPTY;
  }
  return 0;
}

template <class Channel>
template <class Value, class Read>
int ClassicChain<Channel>::Get(Value* value, Read read) const {
  std::scoped_lock lock(mutex_);
  if (!engine_ || value == nullptr) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  *value = read(*engine_);
  return 0;
}

template <class Channel>
int ClassicChain<Channel>::GetParamID(std::uint16_t* id) const {
  return Get(id, [](const auto& engine) { return engine.channel[0]->param().paramID; });
}

template <class Channel>
int ClassicChain<Channel>::SetBypass(bool Channel::*bypass, std::uint16_t active) {
  std::scoped_lock lock(mutex_);
  if (!engine_ || active > 1) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  for (auto& channel : engine_->channel) *channel.*bypass = active == 0;
  return 0;
}

template <class Channel>
int ClassicChain<Channel>::GetBypass(bool Channel::*bypass, std::uint16_t* active) const {
  return Get(active,
             [bypass](const auto& engine) { return static_cast<std::uint16_t>(!(*engine.channel[0].*bypass)); });
}

template <class Channel>
int ClassicChain<Channel>::SetKeyReductionActive(std::uint16_t active) {
  return SetBypass(&Channel::keyBypass, active);
}
template <class Channel>
int ClassicChain<Channel>::GetKeyReductionActive(std::uint16_t* active) const {
  return GetBypass(&Channel::keyBypass, active);
}
template <class Channel>
int ClassicChain<Channel>::SetNoiseReductionActive(std::uint16_t active) {
  return SetBypass(&Channel::noiseBypass, active);
}
template <class Channel>
int ClassicChain<Channel>::GetNoiseReductionActive(std::uint16_t* active) const {
  return GetBypass(&Channel::noiseBypass, active);
}

template <class Channel>
int ClassicChain<Channel>::SetSamplingRate(float rate) {
  std::scoped_lock lock(mutex_);
  if (!engine_) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  if (!classic::is_rate(rate)) return ERROR_BEAMFORMING_KEY_CANCEL_SAMPLING_RATE;
  engine_->samplingRate = rate;
  return 0;
}
template <class Channel>
int ClassicChain<Channel>::GetSamplingRate(float* rate) const {
  return Get(rate, [](const auto& engine) { return engine.samplingRate; });
}

template <class Channel>
int ClassicChain<Channel>::SetChannel(std::uint16_t channels) {
  std::scoped_lock lock(mutex_);
  if (!engine_) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  if (!classic::is_channel_count(channels)) return ERROR_BEAMFORMING_KEY_CANCEL_CHANNEL_NUM;
  try {
    engine_->set_channels(channels);
  } catch (const std::bad_alloc&) {
    return ERROR_BEAMFORMING_KEY_CANCEL_MEMORY_EMPTY;
  }
  return 0;
}
template <class Channel>
int ClassicChain<Channel>::GetChannel(std::uint16_t* channels) const {
  return Get(channels, [](const auto& engine) { return engine.channels; });
}

template <class Channel>
int ClassicChain<Channel>::SetDataLength(std::uint16_t frames) {
  std::scoped_lock lock(mutex_);
  if (!engine_) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  if (frames == 0) return ERROR_BEAMFORMING_KEY_CANCEL_DATA_LENGTH;
  try {
    engine_->framing.resize(frames);
  } catch (const std::bad_alloc&) {
    engine_.reset();
    return ERROR_BEAMFORMING_KEY_CANCEL_MEMORY_EMPTY;
  }
  return 0;
}
template <class Channel>
int ClassicChain<Channel>::GetDataLength(std::uint16_t* frames) const {
  return Get(frames, [](const auto& engine) { return engine.framing.length(); });
}

template <class Channel>
int ClassicChain<Channel>::GetLatency(std::uint32_t* frames) const {
  return Get(frames, [](const auto& engine) {
    return static_cast<std::uint32_t>(engine.framing.latency() + engine.channel[0]->latency());
  });
}

template class ClassicChain<classic::KeyCancelChannel>;
template class ClassicChain<classic::BeamFormingChannel>;

}  // namespace sonivo
