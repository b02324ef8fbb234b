#include "wire/new_hooks.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "support/wait_until.h"

namespace jextest {
namespace {

std::atomic<size_t> failing_size{0};
std::atomic<size_t> last_size{0};
std::atomic<bool> memory_gone{false};
std::atomic<size_t> reused_size{0};
std::atomic<void*> reused_address{nullptr};
std::atomic<long> arrays{0};

/// Stands before every array, unaligned memory behind it excepted: as large as new aligns.
struct ArrayHead {
  size_t size;
  size_t mark;
};
constexpr size_t kMark = 0xA44A7C0DEA44A7C0;
static_assert(sizeof(ArrayHead) == __STDCPP_DEFAULT_NEW_ALIGNMENT__);

/// Whether `size` is what `armed` waits for; it then waits no longer.
bool meets(std::atomic<size_t>& armed, size_t size) {
  if (armed.load(std::memory_order_relaxed) != size || size == 0) return false;
  size_t expected = size;
  return armed.compare_exchange_strong(expected, 0);
}

/// Not by the name of malloc, which a binary may make fail beside new; nor may the compiler put it
/// in.
void* memoryOf(size_t size) noexcept {
  static void* const volatile none = nullptr;
  return std::realloc(none, size == 0 ? 1 : size);
}

void* takeSingle(size_t size) noexcept {
  if (meets(reused_size, size)) return reused_address;
  return memoryOf(size);
}

// Sanitizers find what runs over the end of a block only where the block is as large as asked for;
// they know its size themselves.
void* takeArray(size_t size) noexcept {
  ++arrays;
  if constexpr (kSanitized) return memoryOf(size);
  auto* const head = static_cast<ArrayHead*>(memoryOf(sizeof(ArrayHead) + size));
  if (head == nullptr) return nullptr;
  *head = {size, kMark};
  return head + 1;
}

void giveArray(void* array) noexcept {
  if (array == nullptr) return;
  --arrays;
  if constexpr (kSanitized) {
    std::free(array);
    return;
  }
  ArrayHead* const head = static_cast<ArrayHead*>(array) - 1;
  if (head->mark != kMark) {
    std::fputs("array delete of what is no array\n", stderr);
    std::abort();
  }
  head->mark = 0;
  std::free(head);
}

/// Whether there is memory for a new of `size` bytes.
bool memoryLeftFor(size_t size) {
  if (meets(last_size, size)) memory_gone = true;
  return !memory_gone;
}

/// Throws if there is no memory for a new of `size` bytes.
size_t checked(size_t size) {
  if (!memoryLeftFor(size)) throw std::bad_alloc();
  return size;
}

void* orThrow(void* memory) {
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void failNothrowNewOf(size_t size) { failing_size = size; }

void failNewsFrom(size_t size) { last_size = size; }

void reuseInNewOf(size_t size, void* address) {
  reused_address = address;
  reused_size = size;
}

long livingArrays() { return arrays; }

}  // namespace jextest

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
extern "C" size_t __sanitizer_get_allocated_size(const volatile void* block);
size_t jextest::arraySize(const void* array) { return __sanitizer_get_allocated_size(array); }
#else
size_t jextest::arraySize(const void* array) {
  return (static_cast<const ArrayHead*>(array) - 1)->size;
}
#endif

using jextest::checked;
using jextest::giveArray;
using jextest::memoryLeftFor;
using jextest::orThrow;
using jextest::takeArray;
using jextest::takeSingle;

void* operator new(size_t size) { return orThrow(takeSingle(checked(size))); }
void* operator new[](size_t size) { return orThrow(takeArray(checked(size))); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  const bool fails = jextest::meets(jextest::failing_size, size) || !memoryLeftFor(size);
  return fails ? nullptr : takeSingle(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return memoryLeftFor(size) ? takeArray(size) : nullptr;
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* array) noexcept { giveArray(array); }
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete[](void* array, size_t) noexcept { giveArray(array); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* array, const std::nothrow_t&) noexcept { giveArray(array); }
