#include "e2easr_model/numbers_of_text.h"

#include <stdexcept>

namespace sonivo::e2e {

namespace {

template <class Read>
auto read_number(const Read& read, const std::string& name) {
  try {
    return read();
  } catch (const std::invalid_argument&) {
    throw std::invalid_argument("invalid " + name + " argument");
  } catch (const std::out_of_range&) {
    throw std::out_of_range(name + " argument out of range");
  }
}

}  // namespace

int stoi(const std::string& text) {
  return read_number([&] { return std::stoi(text); }, "stoi");
}
long stol(const std::string& text) {
  return read_number([&] { return std::stol(text); }, "stol");
}
float stof(const std::string& text) {
  return read_number([&] { return std::stof(text); }, "stof");
}
double stod(const std::string& text) {
  return read_number([&] { return std::stod(text); }, "stod");
}

}  // namespace sonivo::e2e
