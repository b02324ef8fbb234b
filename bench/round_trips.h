// Barriers there and back, against the same two messages over the same two sockets without library.
#pragma once

#include <cstdint>

namespace bench {

/// Role: an agent that answers barriers and, on lines "flood PID LEARN-ID COUNT" and
/// "paced PID LEARN-ID COUNT", reports learned entries to a partner as the SDK would (see
/// notification_flow.h).
[[noreturn]] void answeringAgent(const char* program);

/// Role: a partner that makes `count` plain barriers, one after the other, and reports how long
/// each took: {"times": nanoseconds}.
[[noreturn]] void barrierPartner(const char* program, uint64_t count);

/// Roles: who pulls requests and answers each on a pair socket, and who asks; both block in
/// nanomsg.
[[noreturn]] void bareAnswers();
[[noreturn]] void bareAsks(uint64_t count);

}  // namespace bench
