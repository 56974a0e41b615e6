#include "platform/sim/processes.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "platform/sim/live_mark.h"

namespace sonivo::sim {

struct SimProcesses::Entry {
  Entry(Scheduler& scheduler, ProcessInfo its_info) : info(std::move(its_info)), ended(scheduler, Reset::manual) {}

  void end() {
    running = false;
    ended.signal();
  }

  const ProcessInfo info;
  bool running = true;
  SimEvent ended;
};

class SimProcesses::Handle final : public Process {
 public:
  Handle(SimProcesses& processes, std::shared_ptr<Entry> entry)
      : processes_(processes), entry_(std::move(entry)), mark_(processes.live_handles_) {}

  Error terminate(std::uint32_t exit_code) override {
    if (const auto failure = processes_.script_.enter(Step::process_terminate)) return *failure;
    std::scoped_lock lock(processes_.scheduler_.mutex());
    if (!entry_->running) return error::kAccessDenied;
    entry_->end();
    processes_.terminated_.push_back({processes_.scheduler_.now(), entry_->info.id, exit_code});
    return error::kNone;
  }

  Error wait() override {
    if (const auto failure = processes_.script_.enter(Step::process_wait)) return *failure;
    std::unique_lock lock(processes_.scheduler_.mutex());
    Event* const events[] = {&entry_->ended};
    processes_.scheduler_.wait(lock, events, std::nullopt, "the end of a process");
    return error::kNone;
  }

 private:
  SimProcesses& processes_;
  const std::shared_ptr<Entry> entry_;
  LiveMark mark_;
};

SimProcesses::SimProcesses(Scheduler& scheduler, Script& script, const SimSession& session)
    : scheduler_(scheduler), script_(script), session_(session) {}

SimProcesses::~SimProcesses() = default;

Error SimProcesses::list(std::vector<ProcessInfo>& processes) {
  if (const auto failure = script_.enter(Step::processes_list)) return *failure;
  std::scoped_lock lock(scheduler_.mutex());
  processes.clear();
  for (const auto& entry : entries_) {
    if (entry->running) processes.push_back(entry->info);
  }
  return error::kNone;
}

std::unique_ptr<Process> SimProcesses::open(std::uint32_t id, Error& why) {
  why = error::kNone;
  if (const auto failure = script_.enter(Step::process_open)) why = *failure;
  if (why != error::kNone) return nullptr;
  std::scoped_lock lock(scheduler_.mutex());
  auto entry = find_running(id);
  if (!entry) {
    why = error::kInvalidParameter;
    return nullptr;
  }
  return std::make_unique<Handle>(*this, std::move(entry));
}

std::unique_ptr<Process> SimProcesses::start(const ProcessStart& what, Error& why) {
  why = error::kNone;
  if (const auto failure = script_.enter(Step::process_start)) why = *failure;
  if (why != error::kNone) return nullptr;
  std::scoped_lock lock(scheduler_.mutex());
  const std::uint32_t id = ++latest_id_;
  const std::string name = std::filesystem::path(what.program).filename().string();
  const auto entry = std::make_shared<Entry>(scheduler_, ProcessInfo{id, session_.own(), name});
  entries_.push_back(entry);
  started_.push_back({scheduler_.now(), id, what});
  if (run_time_ms_) scheduler_.at(scheduler_.now() + *run_time_ms_ * kMillisecond, [&entry = *entry] { entry.end(); });
  return std::make_unique<Handle>(*this, entry);
}

void SimProcesses::add(const ProcessInfo& process) {
  auto entry = std::make_shared<Entry>(scheduler_, process);
  std::scoped_lock lock(scheduler_.mutex());
  entries_.push_back(std::move(entry));
}

void SimProcesses::end(std::uint32_t id) {
  std::scoped_lock lock(scheduler_.mutex());
  if (const auto entry = find_running(id)) entry->end();
}

void SimProcesses::set_run_time(std::optional<std::uint32_t> ms) {
  std::scoped_lock lock(scheduler_.mutex());
  run_time_ms_ = ms;
}

std::vector<StartedProcess> SimProcesses::started() const {
  std::scoped_lock lock(scheduler_.mutex());
  return started_;
}

std::vector<TerminatedProcess> SimProcesses::terminated() const {
  std::scoped_lock lock(scheduler_.mutex());
  return terminated_;
}

std::shared_ptr<SimProcesses::Entry> SimProcesses::find_running(std::uint32_t id) const {
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const auto& entry) { return entry->running && entry->info.id == id; });
  return found != entries_.end() ? *found : nullptr;
}

}  // namespace sonivo::sim
