// The bare loop: the nanomsg calls that carry an update, and nothing else.
#pragma once

#include <cstddef>
#include <cstdint>

namespace bench {

/// Role: pushes `count` messages of `size` bytes, asking before each whether there is room, as the
/// library does. Reports when it began and ended, and its CPU time.
[[noreturn]] void bareSend(uint64_t count, size_t size);

/// Role: pulls `count` messages. `polls` is how often it asks for input before it receives: once is
/// enough, the library asks twice. Reports when it was ready; later when it had them all, and its
/// CPU time.
[[noreturn]] void bareReceive(uint64_t count, int polls);

}  // namespace bench
