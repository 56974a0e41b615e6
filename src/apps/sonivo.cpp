#include <algorithm>
#include <csignal>
#include <iostream>
#include <string>
#include <vector>

#include "apps/tool/command_line.h"

int main(int argc, char** argv) {
  std::signal(SIGXFSZ, SIG_IGN);  // a file over the size limit is an error of its write, not the end of the process
  const std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
  const int code = sonivo::tool::run_command_line(arguments, std::cout, std::cerr);
  if (code != 1 && !std::cout.flush()) {
    std::cerr << "error: cannot write the table to standard output; direct it somewhere else\n";
    return 1;
  }
  return code;
}
