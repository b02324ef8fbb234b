// Operator new of a test binary that knows which blocks live. Fresh memory is filled with
// kFreshByte and freed memory with another byte, so that what reads either of them shows.
#pragma once

#include <cstddef>
#include <cstdint>

namespace jextest {

inline constexpr uint8_t kFreshByte = 0xA5;

/// Blocks of new that have not been freed, in the whole process.
long livingBlocks();

/// Begins to watch one block, in place of the one watched before.
void watchBlock(const void* block);
/// Whether the watched block has been freed since.
bool watchedBlockIsFreed();

}  // namespace jextest
