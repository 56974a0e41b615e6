#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "relay/chains.h"

namespace sonivo::test {

/// What a scripted chain was asked and what it answers. Calls are logged as "Name" or "Name(arguments)"; a name in
/// `answers` makes that call answer the number, all others answer 0.
class ChainScript {
 public:
  void answer(const std::string& call, int status);
  void pardon(const std::string& call);
  /// Runs the action inside each call of this name from here on, on the thread that calls.
  void during(const std::string& call, std::function<void()> action);
  std::vector<std::string> calls() const;
  std::size_t count(const std::string& call) const;
  void clear();

  std::uint32_t param_size = 16;
  std::atomic<std::uint16_t> frames = 480;  ///< GetDataLength answers this; SetDataLength stores it unless fixed
  bool frames_fixed = false;
  std::function<void(float* block, std::size_t frames, std::size_t channels)> process;  ///< what Execute does
  std::vector<std::uint8_t> opened_with;    ///< parameter bytes of the latest Open
  std::atomic<std::uint16_t> channels = 0;  ///< of the latest SetChannel
  std::atomic<std::uint32_t> latency = 0;   ///< GetLatency, which isn't logged, answers this

  int enter(const std::string& call, const std::string& arguments = {});

 private:
  mutable std::mutex mutex_;
  std::map<std::string, int> answers_;
  std::map<std::string, std::function<void()>> during_;
  std::vector<std::string> calls_;
};

/// Scripts of the three chains; factory() makes chains that follow them, any number of times.
struct ScriptedChains {
  std::shared_ptr<ChainScript> key_cancel = std::make_shared<ChainScript>();
  std::shared_ptr<ChainScript> beam_forming = std::make_shared<ChainScript>();
  std::shared_ptr<ChainScript> ai_speech = std::make_shared<ChainScript>();

  ChainFactory factory() const;
};

}  // namespace sonivo::test
