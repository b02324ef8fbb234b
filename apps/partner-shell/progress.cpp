#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace jexapps {
namespace {

constexpr std::chrono::seconds kQuietTime{1};
constexpr std::chrono::milliseconds kInterval{200};
constexpr char kClearLine[] = "\r\x1b[K";

}  // namespace

Progress::Progress(bool wanted)
    : on_terminal_(wanted && isatty(STDERR_FILENO) == 1), next_(Clock::now() + kQuietTime) {}

Progress::~Progress() {
  if (shown_) std::fputs(kClearLine, stderr);
}

bool Progress::due() { return on_terminal_ && Clock::now() >= next_; }

void Progress::show(const std::string& text) {
  std::fprintf(stderr, "%s%s", kClearLine, text.c_str());
  shown_ = true;
  next_ = Clock::now() + kInterval;
}

}  // namespace jexapps
