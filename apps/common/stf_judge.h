// What left a device held against what a packet test expects: port by port, in number and order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "stf_commands.h"

namespace stf {

/// A packet that left, and the line whose packet led to it.
struct Left {
  uint32_t port = 0;
  std::string digits;  // hexadecimal, lower case
  uint32_t line = 0;
};

struct Difference {
  uint32_t line = 0;  // of the test
  std::string text;   // without the line
};

/// In the order of the lines; empty where all is as expected. `left` is in the order in which the
/// packets left.
std::vector<Difference> judge(const std::vector<Line>& lines, const std::vector<Left>& left);

}  // namespace stf
