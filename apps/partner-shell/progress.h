// A line on the terminal while work takes long: none before a second has passed, none where
// standard error is no terminal, gone when the work is done.
#pragma once

#include <chrono>
#include <string>

namespace jexapps {

class Progress {
 public:
  /// `wanted` false: shows nothing, whatever standard error is.
  explicit Progress(bool wanted = true);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// True when it is time to show something: then say so with show. Costs one clock reading.
  bool due();
  void show(const std::string& text);

 private:
  using Clock = std::chrono::steady_clock;
  bool on_terminal_;
  bool shown_ = false;
  Clock::time_point next_;
};

}  // namespace jexapps
