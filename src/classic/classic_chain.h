#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

namespace sonivo {

namespace classic {
template <class Channel>
struct Engine;
class KeyCancelChannel;
class BeamFormingChannel;
}  // namespace classic

/// The operations of CKeyCancel and CBeamFormingKeyCancel, for a kind of channel.
///
/// All answer 0 on success and a code of classic/result.h otherwise; a null pointer, and any operation but Open,
/// GetVersion and GetParamSize while closed, is ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG. Any thread; one lock for each
/// operation, so that a setter waits for at most one running Execute.
template <class Channel>
class ClassicChain {
 public:
  ClassicChain();
  ~ClassicChain();
  ClassicChain(const ClassicChain&) = delete;
  ClassicChain& operator=(const ClassicChain&) = delete;

  /// Closes first when open. param: blob of GetParamSize bytes, copied; samplingRate 44100 or 48000 Hz, stored only;
  /// channels 1 to 4; dataLength in frames, not 0. A blob of another version, or one that
  /// classic/param_check.h finds unusable, is ERROR_BEAMFORMING_KEY_CANCEL_PARAM_VERSION.
  int Open(const void* param, float samplingRate, std::uint16_t channels, std::uint16_t dataLength);
  int Close();
  /// Processes dataLength interleaved frames in place, full scale 1.0. Allocates nothing. A frame of 192 samples with
  /// one that is no number, or beyond the limit of classic/sane_frame.h, which counts as none, comes out silent and
  /// leaves no trace in the chain, whatever is bypassed.
  int Execute(float* inout);

  int GetVersion(std::uint16_t* major, std::uint16_t* minor) const;
  int GetParamSize(std::uint32_t* size) const;
  /// Binds the chain to a copy of this blob and resets all channels; bypasses, accumulators and queues stay. Without
  /// memory for that, each channel is either reset to this blob or goes on as it was; GetParamID is that of the first.
  int SetParam(const void* param);
  int GetParamID(std::uint16_t* id) const;
  /// Setters of flags take 0 or 1.
  int SetKeyReductionActive(std::uint16_t active);
  int GetKeyReductionActive(std::uint16_t* active) const;
  int SetNoiseReductionActive(std::uint16_t active);
  int GetNoiseReductionActive(std::uint16_t* active) const;
  int SetSamplingRate(float rate);
  int GetSamplingRate(float* rate) const;
  int SetChannel(std::uint16_t channels);
  int GetChannel(std::uint16_t* channels) const;
  /// Drops what waits in accumulators and queues.
  int SetDataLength(std::uint16_t frames);
  int GetDataLength(std::uint16_t* frames) const;
  /// Frames by which the output is late, as the stages are switched: those of the blocks and those of the stages.
  int GetLatency(std::uint32_t* frames) const;

 protected:
  int SetBypass(bool Channel::*bypass, std::uint16_t active);
  int GetBypass(bool Channel::*bypass, std::uint16_t* active) const;

 private:
  template <class Value, class Read>
  int Get(Value* value, Read read) const;

  mutable std::mutex mutex_;
  std::unique_ptr<classic::Engine<Channel>> engine_;  ///< null while closed
};

}  // namespace sonivo
