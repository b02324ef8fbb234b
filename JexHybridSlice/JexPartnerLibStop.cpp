#include "JexPartnerLibStop.h"

#include <unistd.h>

#include <cerrno>

// What assert() calls; <cassert> hides it where NDEBUG is set.
extern "C" [[noreturn]] void __assert_fail(  // NOLINT(bugprone-reserved-identifier)
    const char* assertion, const char* file, unsigned line, const char* function) noexcept;

namespace PartnerLib {

void writeLine(const std::string& text) {
  std::string_view rest = text;
  while (!rest.empty()) {
    const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
    if (written > 0) {
      rest.remove_prefix(static_cast<size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      return;  // nobody to tell
    }
  }
}

void stopWithLine(const StopPlace& place, const char* expression, const std::string& message) {
  writeLine("Error: " + message + '\n');
  __assert_fail(expression, place.file, place.line, place.function);
}

}  // namespace PartnerLib
