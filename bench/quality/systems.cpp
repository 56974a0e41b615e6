#include "quality/systems.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>

#include "apps/tool/latency.h"
#include "peers/classic.h"
#include "peers/peers.h"

namespace sonivo::bench {

namespace {

tool::FloatAudio to_audio(const Signal& signal) { return {kRateHz, 1, {signal.begin(), signal.end()}}; }

/// The shift at which the whole output resembles the speech most; its loudest stretch tells where to look.
std::size_t measured_delay(const System& system, const Signal& speech) {
  constexpr std::size_t kNear = samples_of_ms(1);
  const std::vector<Signal> microphones(system.microphones, speech);
  const Signal heard = enhance(*system.start(), microphones);
  const tool::Latency latency = tool::measure_latency(to_audio(speech), to_audio(heard), samples_of_ms(100));
  if (latency.outcome != tool::Latency::Outcome::measured)
    throw std::runtime_error(system.name + " makes of speech in quiet what does not resemble it");
  std::size_t best = 0;
  double highest = 0;
  for (std::size_t d = latency.frames - std::min(latency.frames, kNear); d <= latency.frames + kNear; ++d) {
    const double product =
        std::inner_product(heard.begin() + static_cast<std::ptrdiff_t>(d), heard.end(), speech.begin(), 0.0);
    if (product <= highest) continue;
    highest = product;
    best = d;
  }
  return best;
}

}  // namespace

Signal enhance(Enhancer& enhancer, std::span<const Signal> channels, std::size_t delay,
               std::span<const std::size_t> presses) {
  const std::size_t frames = channels[0].size();
  std::vector<float> block(kBlock * channels.size());
  Signal result;
  result.reserve(frames + delay + kBlock);
  for (std::size_t at = 0; at < frames + delay; at += kBlock) {
    for (std::size_t i = 0; i < kBlock; ++i) {
      for (std::size_t c = 0; c < channels.size(); ++c)
        block[i * channels.size() + c] = at + i < frames ? static_cast<float>(channels[c][at + i]) : 0.0f;
    }
    const auto press = std::lower_bound(presses.begin(), presses.end(), at);
    enhancer.process(block.data(), press != presses.end() && *press < at + kBlock);
    for (std::size_t i = 0; i < kBlock; ++i) result.push_back(block[i * channels.size()]);
  }
  result.erase(result.begin(), result.begin() + static_cast<std::ptrdiff_t>(delay));
  result.resize(frames);
  return result;
}

std::vector<System> systems(const classic::KeyCancelParam& param, bool transients, bool alone, const Signal& speech) {
  std::vector<System> all{{.name = "sonivo", .start = [&param] { return key_cancel(param, 1); }}};
  if (!alone) {
    all.push_back({.name = "speex", .start = [] { return speex_noise_suppression(1, kSpeexDefaultDb); }});
    all.push_back({.name = "speex -30", .start = [] { return speex_noise_suppression(1, kSpeexStrongDb); }});
    const WebRtcParts parts{.noise_suppression = true, .transient_suppressor = transients};
    all.push_back({.name = transients ? "webrtc+ts" : "webrtc", .start = [parts] { return webrtc(1, parts); }});
  }
  for (System& system : all) system.delay = measured_delay(system, speech);
  return all;
}

System beam_forming_system(const classic::BeamFormingKeyCancelParam& param, const Signal& speech) {
  System system{.name = "sonivo bf", .start = [&param] { return beam_forming(param); }, .microphones = 2};
  system.delay = measured_delay(system, speech);
  return system;
}

}  // namespace sonivo::bench
