// Where command lines come from: a terminal, a pipe, or a script.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "stop_signal.h"

namespace jexapps {

class LineSource {
 public:
  enum class Read : uint8_t { kLine, kEnd, kStopped };
  virtual ~LineSource() = default;

  /// Waits for the next line, which comes without its end. kStopped: a signal asked to end.
  virtual Read next(std::string* line) = 0;
};

/// Lines of a file or pipe. A last line without an end counts.
class FileLines : public LineSource {
 public:
  /// The descriptor stays the caller's.
  FileLines(int fd, const StopSignal& stop) : fd_(fd), stop_(stop) {}

  Read next(std::string* line) override;

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
};

/// Lines that a person edits, with history and completion. One object a process: the line editor
/// keeps its state for itself.
class TerminalLines : public LineSource {
 public:
  /// Gives the words that could stand in the place of the last word of its argument.
  using Complete = std::function<std::vector<std::string>(std::string_view text)>;

  TerminalLines(const StopSignal& stop, Complete complete);
  ~TerminalLines() override;  // saves the history

  Read next(std::string* line) override;

 private:
  const StopSignal& stop_;
};

}  // namespace jexapps
