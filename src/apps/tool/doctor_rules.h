#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/tool/device_holders.h"
#include "apps/tool/machine_chain.h"
#include "apps/tool/status_report.h"
#include "platform/linux/logind.h"
#include "platform/linux/pipewire/server_survey.h"

namespace sonivo::tool {

/// What is known of a machine at one moment.
struct MachineFacts {
  std::vector<std::string> table_faults;  ///< of the tables of microphone names, a sentence each
  pipewire::ServerSurvey audio;
  std::vector<DeviceHolder> holders;
  linux::SessionState session;
  bool is_root = false;
  bool real_time = false;         ///< is granted to this user
  std::string real_time_refusal;  ///< else why, in the words of who schedules; empty: there is nobody who does

  std::string driver_fault;  ///< why it can't be asked, and what to do, with a semicolon between; empty: it answers
  // Known only where the driver answers.
  Chain chain = Chain::none;
  std::string capture_endpoint;  ///< id that the user chose; empty: the default
  std::string render_endpoint;
  bool has_chain_parameters = false;  ///< with a microphone where the relay looks for those of the chain
  bool has_report = false;            ///< the service runs and tells of itself
  std::optional<ServiceReport> service;
  std::string report_fault;     ///< why there is no `service` in spite of a report
  std::uint64_t silent_s = 0;   ///< for so long it has told nothing, though it should have; 0: it tells
  bool has_new_driver = false;  ///< with which the service may not have connected yet

  std::vector<std::string> missing_files;  ///< that come with the program
  std::string model;                       ///< file of the third chain; empty: it is there
};

/// What is to be said of one thing.
struct Finding {
  enum class Kind { good, hint, trouble };

  Kind kind = Kind::good;
  std::string subject;  ///< one word, for programs
  std::string text;     ///< what is, in a sentence
  std::string advice;   ///< what to do; empty where nothing is to be done
};

/// In the order in which one thing needs the other; what can't be known for want of another is left out.
std::vector<Finding> findings(const MachineFacts& facts);

bool is_well(const std::vector<Finding>& findings);

}  // namespace sonivo::tool
