// Operator new of a test binary: it can be told to fail or to give an address a second time, and
// knows how large an array was asked for. An array that is freed as if it were none ends the
// process.
#pragma once

#include <cstddef>

namespace jextest {

/// The next new (std::nothrow) of `size` bytes, in any thread, finds no memory.
void failNothrowNewOf(size_t size);

/// The next new of `size` bytes, or new of an array of them, finds no memory, and from then on no
/// new does, whatever its size and thread.
void failNewsFrom(size_t size);

/// The next new of `size` bytes gives `address`.
void reuseInNewOf(size_t size, void* address);

/// Bytes that were asked for at `array`, which came from array new.
size_t arraySize(const void* array);

/// Arrays of new that have not been freed.
long livingArrays();

}  // namespace jextest
