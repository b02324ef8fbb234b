// How the library stops a process: one "Error: " line, then a failed assertion.
//
// A broken invariant is not survivable by design. The line leaves in one write, so lines of two
// threads never mix; the assertion is failed through the C library, which prints program, source,
// line, function signature and expression, and aborts. It does so in every build type.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

namespace PartnerLib {

/// Where a stop is: what the C library prints about a failed assertion.
struct StopPlace {
  const char* file;  ///< from "JexHybridSlice/" on
  unsigned line;
  const char* function;
};

/// Where the folder of the sources begins in `path`, wherever that was compiled.
constexpr size_t sourceOffset(std::string_view path) {
  const size_t at = path.rfind("JexHybridSlice/");
  return at == std::string_view::npos ? 0 : at;
}

/// Writes `text` to standard error in one write. Where that is a full pipe that does not block, it
/// waits for the reader, 5 seconds at most; then the text is lost.
void writeLine(std::string_view text);

/// Writes "Error: ", `message` and an end of line, then fails the assertion `expression`.
[[noreturn]] void stopWithLine(const StopPlace& place, const char* expression,
                               const std::string& message);

/// Writes `line`, which is whole from "Error: " to its end, and fails the assertion `expression`.
/// Allocates nothing. The C library's malloc makes the assertion's line; without that, it prints
/// "Unexpected error." in its place and aborts all the same.
[[noreturn]] void stopWithWholeLine(const StopPlace& place, const char* expression,
                                    std::string_view line);

/// A value as it stands in a message: text as it is, a number in decimal.
inline std::string_view messagePart(std::string_view text) { return text; }
template <typename Number, typename = std::enable_if_t<std::is_arithmetic_v<Number>>>
std::string messagePart(Number value) {
  return std::to_string(value);
}

/// All `parts` behind each other.
template <typename... Parts>
std::string messageOf(const Parts&... parts) {
  std::string message;
  (message.append(messagePart(parts)), ...);
  return message;
}

/// Makes the message and stops. It lies apart from the functions that stop: most never do, and stay
/// small.
template <typename... Parts>
[[noreturn, gnu::cold, gnu::noinline]] void stopAt(const StopPlace& place, const char* expression,
                                                   const Parts&... parts) {
  stopWithLine(place, expression, messageOf(parts...));
}

}  // namespace PartnerLib

/// The place of this line, for stops that a shared function makes on behalf of its caller. Costs
/// nothing: the offset is found by the compiler.
#define PARTNER_HERE                                                                          \
  (::PartnerLib::StopPlace{                                                                   \
      &__FILE__[std::integral_constant<size_t, ::PartnerLib::sourceOffset(__FILE__)>::value], \
      __LINE__, static_cast<const char*>(__PRETTY_FUNCTION__)})

/// The failed assertion of `condition`, a string literal.
#define PARTNER_EXPRESSION(condition) "\"" condition "\" == nullptr"

/// Stops at `place`: the assertion's expression is `condition`, a string literal, compared with
/// nullptr; the message is made of the values that follow.
#define PARTNER_STOP_AT(place, condition, ...) \
  ::PartnerLib::stopAt(place, PARTNER_EXPRESSION(condition), __VA_ARGS__)

/// Stops here.
#define PARTNER_STOP(condition, ...) PARTNER_STOP_AT(PARTNER_HERE, condition, __VA_ARGS__)

/// Stops here without memory: `message` is one string literal.
#define PARTNER_STOP_WITHOUT_MEMORY(condition, message)                        \
  ::PartnerLib::stopWithWholeLine(PARTNER_HERE, PARTNER_EXPRESSION(condition), \
                                  "Error: " message "\n")

/// Stops at `place`, or here, unless `holds`.
#define PARTNER_REQUIRE_AT(place, holds, condition, ...) \
  do {                                                   \
    if (__builtin_expect(!(holds), 0)) {                 \
      PARTNER_STOP_AT(place, condition, __VA_ARGS__);    \
    }                                                    \
  } while (false)
#define PARTNER_REQUIRE(holds, condition, ...) \
  PARTNER_REQUIRE_AT(PARTNER_HERE, holds, condition, __VA_ARGS__)

/// The same where the condition is the code as it stands.
#define PARTNER_CHECK_AT(place, condition, ...) \
  PARTNER_REQUIRE_AT(place, condition, #condition, __VA_ARGS__)
#define PARTNER_CHECK(condition, ...) \
  PARTNER_REQUIRE_AT(PARTNER_HERE, condition, #condition, __VA_ARGS__)
