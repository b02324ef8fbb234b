#include "wire/malloc_fault.h"

#include <atomic>
#include <cstddef>

namespace jextest {
namespace {

std::atomic<bool> failing{false};

}  // namespace

void failMallocs() { failing = true; }

}  // namespace jextest

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
void* __real_malloc(size_t size);
__attribute__((visibility("default"))) void* __wrap_malloc(size_t size) {
  return jextest::failing ? nullptr : __real_malloc(size);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
