#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "input.h"

namespace jexapps {
namespace {

constexpr size_t kReadSize = 1 << 16;  // bytes

}  // namespace

LineSource::Read FileLines::next(std::string* line) {
  for (;;) {
    if (stop_.endRequested()) return Read::kStopped;
    if (takeLine(line)) return Read::kLine;
    if (buffer_.size() - begin_ > kMaxLine) {
      failure_ = "a line is longer than " + std::to_string(kMaxLine) + " bytes";
      return Read::kFailed;
    }
    if (stop_.wait(fd_) == StopSignal::Ready::kEnd) return Read::kStopped;
    if (fill()) continue;
    if (!failure_.empty()) return Read::kFailed;
    if (begin_ == buffer_.size()) return Read::kEnd;
    buffer_.push_back('\n');  // the last line has none
  }
}

bool FileLines::takeLine(std::string* line) {
  const size_t end = buffer_.find('\n', begin_);
  if (end == std::string::npos) return false;
  line->assign(buffer_, begin_, end - begin_);
  bytes_read_ += end + 1 - begin_;
  begin_ = end + 1;
  return true;
}

// False at the end of the file, or where it cannot be read on, with the failure.
bool FileLines::fill() {
  buffer_.erase(0, begin_);
  begin_ = 0;
  const size_t kept = buffer_.size();
  buffer_.resize(kept + kReadSize);
  ssize_t count = 0;
  do {
    count = read(fd_, buffer_.data() + kept, kReadSize);
  } while (count < 0 && errno == EINTR);
  if (count < 0) failure_ = std::strerror(errno);
  buffer_.resize(kept + static_cast<size_t>(count > 0 ? count : 0));
  return count > 0;
}

}  // namespace jexapps
