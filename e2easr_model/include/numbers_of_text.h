#pragma once

#include <string>

namespace sonivo::e2e {

// The number that a text begins with, as the standard library's functions of these names read it. The texts of their
// errors, std::invalid_argument and std::out_of_range, are the same with every library: "invalid stoi argument" and
// "stoi argument out of range".

int stoi(const std::string& text);
long stol(const std::string& text);
float stof(const std::string& text);
double stod(const std::string& text);

}  // namespace sonivo::e2e
