// Runs a packet test against a device.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "setup_session.h"
#include "stf_commands.h"
#include "stf_judge.h"

namespace stf {

struct Run {
  std::vector<Difference> differences;  // by line
  std::vector<Difference> readings;     // of commands that read something, by line
  uint64_t packets_in = 0;
  uint64_t packets_out = 0;
};

/// Carries out the lines one after the other and judges at the end. `wait` is what lets time pass.
/// Throws Error, whose text begins with "NAME:LINE: ", where a line cannot be carried out.
Run run(const std::vector<Line>& lines, const std::string& name, SetupSession* session,
        const std::function<void()>& wait);

}  // namespace stf
