// Addresses of servers on command lines, "HOST:PORT".
#pragma once

#include <algorithm>
#include <string>

namespace jexapps {

inline constexpr int kLastTcpPort = 65535;

/// What is wrong with `address`; empty if it is HOST:PORT with a decimal port that exists. HOST is
/// not looked at. Made to be a CLI::Validator.
inline std::string checkHostPort(const std::string& address) {
  const size_t colon = address.rfind(':');
  if (colon == std::string::npos || colon == 0) return '\'' + address + "' is not HOST:PORT";
  const std::string port = address.substr(colon + 1);
  const bool is_number = !port.empty() && std::all_of(port.begin(), port.end(), [](char digit) {
    return digit >= '0' && digit <= '9';
  });
  if (is_number && port.size() < 10 && std::stoi(port) <= kLastTcpPort) return {};
  return "port '" + port + "' in '" + address + "' is not a number from 0 to " +
         std::to_string(kLastTcpPort);
}

}  // namespace jexapps
