#include "start_guard.h"

#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <thread>

#include "start_error.h"

namespace slice_agent {
namespace {

/// Threads of an agent, those of gRPC included, of which some are made per processor.
size_t threadCount() { return 16 + std::thread::hardware_concurrency(); }

/// What the C library reserves for the memory that one thread allocates.
constexpr size_t kArenaBytes = size_t{64} << 20;

size_t stackBytes() {
  size_t bytes = size_t{8} << 20;
  pthread_attr_t attributes;
  if (pthread_getattr_default_np(&attributes) != 0) return bytes;
  pthread_attr_getstacksize(&attributes, &bytes);
  pthread_attr_destroy(&attributes);
  return bytes;
}

thread_local bool keeps_aborts = false;

void onAbort(int /*number*/) {
  if (keeps_aborts) {
    signal(SIGABRT, SIG_DFL);
    return;  // abort() raises the signal once more
  }
  constexpr char kLine[] = "slice-agent: cannot start: no memory or threads left\n";
  if (write(STDERR_FILENO, kLine, sizeof kLine - 1) < 0) _exit(EXIT_FAILURE);
  _exit(EXIT_FAILURE);
}

[[noreturn]] void onUncaught() {
  try {
    if (const std::exception_ptr exception = std::current_exception()) {
      std::rethrow_exception(exception);
    }
    std::fputs("slice-agent: ended by the runtime\n", stderr);
  } catch (const std::bad_alloc&) {
    std::fputs("slice-agent: out of memory\n", stderr);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "slice-agent: %s\n", error.what());
  } catch (...) {
    std::fputs("slice-agent: an exception of an unknown kind\n", stderr);
  }
  _exit(EXIT_FAILURE);
}

}  // namespace

void checkAddressSpace() {
  rlimit limit{};
  if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return;
  const size_t needed = threadCount() * (stackBytes() + kArenaBytes);
  void* const space =
      mmap(nullptr, needed, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (space != MAP_FAILED) {
    munmap(space, needed);
    return;
  }
  throw StartError("a limit of " + std::to_string(limit.rlim_cur >> 20) +
                   " MiB of address space leaves less than the " + std::to_string(needed >> 20) +
                   " MiB that a start takes: raise it (ulimit -v)");
}

void guardStart() {
  std::set_terminate(onUncaught);
  signal(SIGABRT, onAbort);
}

void endOfStart() { signal(SIGABRT, SIG_DFL); }

void keepAborts() { keeps_aborts = true; }

}  // namespace slice_agent
