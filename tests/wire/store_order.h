// The order in which a thread writes variables, as the processor does it: their pages are made
// read-only, each store traps, and is made by a single step. On x86-64, without a sanitizer.
#pragma once

#include <string>
#include <vector>

#include "support/wait_until.h"

#if defined(__x86_64__) && defined(__linux__)
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define JEX_TEST_STORE_ORDER
#endif
#endif

namespace jextest {

struct WatchedVariable {
  std::string name;
  const void* address;
  size_t size;
};

/// One at a time, and only the thread that begins may write to the variables' pages until the end.
class StoreOrder {
 public:
  explicit StoreOrder(std::vector<WatchedVariable> variables);
  void begin();
  /// Names of the variables in the order in which they were written.
  std::vector<std::string> end();

 private:
  std::vector<WatchedVariable> variables_;
};

}  // namespace jextest
