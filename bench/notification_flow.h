// Notifications from the SDK's callback on the agent to the application's dequeue on the partner,
// against a bare pair socket that copies and enqueues the same records.
#pragma once

#include <cstddef>
#include <cstdint>

namespace bench {

/// On the agent: reports `count` learned entries of one 64-bit field, the time of the report in
/// nanoseconds, to partner `pid`: in messages of many entries as fast as the socket takes them, or
/// (`paced`) one at a time with pauses.
void notifyPartner(int pid, uint32_t learn_id, uint64_t count, bool paced);

/// Role: a partner that registers for digests, reports {"pid", "learn"} and then, for each line
/// "COUNT", {"begin", "end", "latencies"} of as many notifications: times of the first report and
/// of the last dequeue, and of each from report to dequeue, in nanoseconds.
[[noreturn]] void notifiedPartner(const char* program);

/// Roles: the same two without library. The sender takes lines "flood COUNT" and "paced COUNT".
[[noreturn]] void bareNotifies();
[[noreturn]] void bareNotified();

}  // namespace bench
