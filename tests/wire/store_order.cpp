#include "wire/store_order.h"

#ifdef JEX_TEST_STORE_ORDER

#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace jextest {
namespace {

constexpr greg_t kTrapFlag = 0x100;  // of the flags register: stop after one instruction
constexpr size_t kMostPages = 8;
constexpr size_t kMostStores = 64;

/// What the handlers use. It lies on pages of its own, which stay writable.
struct Traps {
  uintptr_t pages[kMostPages];
  size_t page_count;
  uintptr_t stores[kMostStores];
  size_t store_count;
  struct sigaction old_fault;
  struct sigaction old_trap;
};

size_t pageSize() {
  static const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

Traps& traps() {
  static auto* const instance = static_cast<Traps*>(
      mmap(nullptr, sizeof(Traps), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  return *instance;
}

void protect(int access) {
  for (size_t i = 0; i < traps().page_count; ++i) {
    mprotect(reinterpret_cast<void*>(traps().pages[i]), pageSize(), access);
  }
}

void onFault(int, siginfo_t* info, void* context) {
  const auto address = reinterpret_cast<uintptr_t>(info->si_addr);
  uintptr_t* const end = traps().pages + traps().page_count;
  if (std::find(traps().pages, end, address / pageSize() * pageSize()) == end) {
    signal(SIGSEGV, SIG_DFL);  // not ours: it comes again
    return;
  }
  if (traps().store_count < kMostStores) traps().stores[traps().store_count++] = address;
  protect(PROT_READ | PROT_WRITE);
  static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL] |= kTrapFlag;
}

void onTrap(int, siginfo_t*, void* context) {
  static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL] &= ~kTrapFlag;
  protect(PROT_READ);
}

void handle(int number, void (*handler)(int, siginfo_t*, void*), struct sigaction* old) {
  struct sigaction action {};
  action.sa_sigaction = handler;
  action.sa_flags = SA_SIGINFO;
  sigaction(number, &action, old);
}

}  // namespace

StoreOrder::StoreOrder(std::vector<WatchedVariable> variables) : variables_(std::move(variables)) {
  traps() = {};
  pageSize();  // neither is called for the first time in a handler
  for (const WatchedVariable& variable : variables_) {
    const auto first = reinterpret_cast<uintptr_t>(variable.address) / pageSize();
    const auto last =
        (reinterpret_cast<uintptr_t>(variable.address) + variable.size - 1) / pageSize();
    for (uintptr_t page = first; page <= last; ++page) {
      const uintptr_t address = page * pageSize();
      uintptr_t* const end = traps().pages + traps().page_count;
      if (std::find(traps().pages, end, address) != end) continue;
      if (traps().page_count == kMostPages) std::abort();
      traps().pages[traps().page_count++] = address;
    }
  }
}

void StoreOrder::begin() {
  handle(SIGSEGV, onFault, &traps().old_fault);
  handle(SIGTRAP, onTrap, &traps().old_trap);
  protect(PROT_READ);
}

std::vector<std::string> StoreOrder::end() {
  protect(PROT_READ | PROT_WRITE);
  sigaction(SIGSEGV, &traps().old_fault, nullptr);
  sigaction(SIGTRAP, &traps().old_trap, nullptr);
  std::vector<std::string> order;
  for (size_t i = 0; i < traps().store_count; ++i) {
    for (const WatchedVariable& variable : variables_) {
      const auto begin = reinterpret_cast<uintptr_t>(variable.address);
      if (traps().stores[i] >= begin && traps().stores[i] < begin + variable.size) {
        order.push_back(variable.name);
      }
    }
  }
  return order;
}

}  // namespace jextest

#endif
