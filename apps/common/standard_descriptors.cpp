// Opens `/dev/null` for each of the descriptors 0 to 2 that is closed when a program starts.
// Without it, the next file or socket that the process opens takes the number, and what is meant
// for standard output goes there. Standard input that was closed is at its end; output to a closed
// descriptor is dropped. A program gets this by having this file among its sources.
//
// The work is done before the initializers of shared libraries, some of which open descriptors. No
// library is initialized at that time, the sanitizers' among them: only system calls are made.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

namespace jexapps {
namespace {

__attribute__((no_sanitize("address", "thread", "undefined"))) void openStandardDescriptors() {
  for (long fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (syscall(SYS_fcntl, fd, F_GETFD) >= 0) continue;
    // The lowest free number is this one, since all before it are open.
    if (syscall(SYS_openat, AT_FDCWD, "/dev/null", O_RDWR) != fd) {
      syscall(SYS_exit_group, EXIT_FAILURE);
    }
  }
}

[[gnu::used, gnu::section(".preinit_array")]] void (*const open_standard_descriptors)() =
    openStandardDescriptors;

}  // namespace
}  // namespace jexapps
