// Where command lines come from: a terminal, a pipe, or a script.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#include "shell.h"
#include "stop_signal.h"

namespace jexapps {

class LineSource {
 public:
  enum class Read : uint8_t { kLine, kEnd, kStopped, kFailed };
  virtual ~LineSource() = default;

  /// Waits for the next line, which comes without its end. kStopped: a signal asked to end.
  virtual Read next(std::string* line) = 0;
};

/// Lines of a file or pipe. A last line without an end counts.
class FileLines : public LineSource {
 public:
  static constexpr size_t kMaxLine = 1 << 20;  // bytes

  /// The descriptor stays the caller's.
  FileLines(int fd, const StopSignal& stop) : fd_(fd), stop_(stop) {}

  /// kFailed: the file cannot be read, or a line is too long; failure() says which.
  Read next(std::string* line) override;

  const std::string& failure() const { return failure_; }

  /// Bytes of the lines given out so far.
  uint64_t bytesRead() const { return bytes_read_; }

 private:
  bool takeLine(std::string* line);
  bool fill();

  int fd_;
  const StopSignal& stop_;
  std::string buffer_;
  size_t begin_ = 0;  // of what has not been given out, in buffer_
  uint64_t bytes_read_ = 0;
  std::string failure_;
};

/// Lines that a person edits, with history and completion. An interrupt drops the line. One object
/// a process: the line editor keeps its state for itself.
class TerminalLines : public LineSource {
 public:
  /// Gives what could stand in the place of the last word of its argument.
  using Complete = std::function<Shell::Completions(std::string_view text)>;

  /// Prompts and lines are shown on `screen`. Interrupts of `stop` have been separated.
  TerminalLines(StopSignal& stop, FILE* screen, Complete complete);
  ~TerminalLines() override;  // saves the history

  /// Interrupts from before the call are forgotten: they were for the last command.
  Read next(std::string* line) override;

 private:
  StopSignal& stop_;
};

}  // namespace jexapps
