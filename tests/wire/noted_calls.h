// What the code under test asks the SDK, as recorded by test doubles of the SDK: one line per call,
// in order. One thread at a time.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "jxsdk/rt.h"

namespace jextest {

using Calls = std::vector<std::string>;

inline Calls operator+(Calls calls, const std::string& last) {
  calls.push_back(last);
  return calls;
}

/// Those that have not been taken yet.
inline Calls& notedCalls() {
  static Calls calls;
  return calls;
}

inline jx_status_t note(const std::string& call) {
  notedCalls().push_back(call);
  return JX_SUCCESS;
}

/// The calls since the last time.
inline Calls taken() { return std::exchange(notedCalls(), {}); }

/// Device, pipe, direction and parser.
inline std::string text(const jx_rt_target_t& target) {
  return std::to_string(target.dev_id) + "/" + std::to_string(target.pipe_id) + "/" +
         std::to_string(target.direction) + "/" + std::to_string(target.prsr_id);
}

}  // namespace jextest
