#include "host_bench.h"

#include <array>
#include <filesystem>
#include <fstream>

#include "host/entry.h"
#include "relay/effect_properties.h"

namespace sonivo::test {
namespace {

sim::Config config_of(const std::filesystem::path& folder, sim::Schedule schedule) {
  sim::Config config;
  config.schedule = schedule;
  config.folder = folder;
  return config;
}

}  // namespace

HostBench::HostBench(const Model& model, sim::Schedule schedule)
    : machine(config_of(folder.path(), schedule)),
      host(std::make_shared<HostState>(machine.seams(), chains.factory())) {
  std::filesystem::create_directory(folder.path() / "user");
  driver().set_number(control::GetSonivoDrvGeneration, model.generation);
  driver().set_number(control::GetFunction, model.function);
  driver().set_number(control::GetGenerationMic, model.generation_mic);
  driver().set_number(control::GetFunctionMic, model.function_mic);
}

HostBench::~HostBench() {
  machine.script().clear_faults();
  if (service_ && running()) end_session();
  if (service_) service_->join();
  host.reset();
}

void HostBench::store_parameters() {
  const auto store = [this](const PropertyKey& key, std::size_t bytes) {
    machine.fx().set_effect(sim::kMicArray, key, std::vector<std::byte>(bytes));
  };
  store(PKEY_NVC_MTGMIC_KC_Param, 2 + chains.key_cancel->param_size);
  store(PKEY_NVC_MTGMIC_BF_KC_Param, 3 + chains.beam_forming->param_size);
}

void HostBench::store_bitmap(std::uint32_t id, std::uint8_t width, std::uint8_t height) {
  constexpr std::size_t kWidthAt = 18;
  constexpr std::size_t kHeightAt = 22;
  std::array<char, 26> header{'B', 'M'};
  header[kWidthAt] = static_cast<char>(width);
  header[kHeightAt] = static_cast<char>(height);
  const std::filesystem::path bitmaps = folder.path() / "bitmaps";
  std::filesystem::create_directory(bitmaps);
  std::ofstream(bitmaps / (std::to_string(id) + ".bmp"), std::ios::binary).write(header.data(), header.size());
}

void HostBench::start(std::uint32_t ms) {
  service_ = machine.scheduler().start("service", [this] { exit_code = RunService(*host); });
  run_for(ms);
}

void HostBench::end_session() {
  machine.session().query_end();
  run_for(20'000);
}

void HostBench::post(std::uint32_t message, std::uint64_t wParam) {
  machine.desktop().post_from_outside({.window = host->m_hWnd, .message = message, .wParam = wParam});
}

std::vector<std::string> HostBench::steps() {
  std::vector<std::string> names;
  for (const std::string& line : machine.script().trace()) names.push_back(line.substr(line.find(' ') + 1));
  return names;
}

bool HostBench::driver_lock_is_free() {
  bool free = false;
  const auto other = machine.scheduler().start("other", [&] {
    free = host->m_csDriver.try_lock();
    if (free) host->m_csDriver.unlock();
  });
  other->join();
  return free;
}

std::vector<std::string> HostBench::threads() {
  std::vector<std::string> names;
  for (const sim::ThreadInfo& thread : machine.scheduler().threads()) {
    if (thread.name == "MainThread" || thread.name == "SubThread" || thread.name.starts_with("Change")) {
      names.push_back(thread.name);
    }
  }
  return names;
}

}  // namespace sonivo::test
