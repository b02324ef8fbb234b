// How a start of the agent fails.
#pragma once

#include <stdexcept>

namespace slice_agent {

/// A start that failed: a line for the person, saying what and why.
class StartError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace slice_agent
