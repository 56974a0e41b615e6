#pragma once

#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace sonivo::test {

/// This process's threads and their names, at most 15 characters each.
inline std::map<pid_t, std::string> own_threads() {
  std::map<pid_t, std::string> all;
  for (const auto& each : std::filesystem::directory_iterator("/proc/self/task")) {
    std::getline(std::ifstream(each.path() / "comm"), all[std::stoi(each.path().filename())]);
  }
  return all;
}

inline std::vector<pid_t> own_threads_called(const std::string& name) {
  std::vector<pid_t> called;
  for (const auto& [thread, its_name] : own_threads()) {
    if (its_name == name) called.push_back(thread);
  }
  return called;
}

}  // namespace sonivo::test
