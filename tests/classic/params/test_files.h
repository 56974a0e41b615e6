#pragma once

#include <fstream>
#include <iterator>
#include <span>
#include <string>

#include "../../support/temporary_folder.h"

namespace sonivo::classic {

using sonivo::test::TemporaryFolder;

inline void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The memory of a record.
template <typename Record>
std::string bytes_of(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

}  // namespace sonivo::classic
