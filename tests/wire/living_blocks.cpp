#include "wire/living_blocks.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace jextest {
namespace {

std::atomic<long> living{0};
std::atomic<const void*> watched{nullptr};
std::atomic<bool> watched_freed{false};

/// Stands before every block; as large as new aligns.
struct BlockHead {
  size_t size;
  size_t unused;
};
static_assert(sizeof(BlockHead) == __STDCPP_DEFAULT_NEW_ALIGNMENT__);

constexpr uint8_t kFreedByte = 0xDD;

void* takeBlock(size_t size) {
  auto* const head = static_cast<BlockHead*>(std::malloc(sizeof(BlockHead) + size));
  if (head == nullptr) throw std::bad_alloc();
  head->size = size;
  std::memset(head + 1, kFreshByte, size);
  ++living;
  return head + 1;
}

void giveBlock(void* block) {
  if (block == nullptr) return;
  --living;
  if (watched == block) watched_freed = true;
  BlockHead* const head = static_cast<BlockHead*>(block) - 1;
  std::memset(block, kFreedByte, head->size);
  std::free(head);
}

}  // namespace

long livingBlocks() { return living; }

void watchBlock(const void* block) {
  watched_freed = false;
  watched = block;
}

bool watchedBlockIsFreed() { return watched_freed; }

}  // namespace jextest

// The forms without exceptions and for arrays come down to these.
void* operator new(size_t size) { return jextest::takeBlock(size); }
void operator delete(void* block) noexcept { jextest::giveBlock(block); }
void operator delete(void* block, size_t) noexcept { jextest::giveBlock(block); }
void* operator new[](size_t size) { return jextest::takeBlock(size); }
void operator delete[](void* block) noexcept { jextest::giveBlock(block); }
void operator delete[](void* block, size_t) noexcept { jextest::giveBlock(block); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  try {
    return jextest::takeBlock(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* block, const std::nothrow_t&) noexcept { jextest::giveBlock(block); }
