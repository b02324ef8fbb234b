#include "wire/call_hooks.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
extern "C" {
int __real_nn_poll(nn_pollfd* fds, int count, int timeout);
int __real_nn_send(int sock, const void* buffer, size_t size, int flags);
int __real_nn_recv(int sock, void* buffer, size_t size, int flags);
int __real_nanosleep(const timespec* wanted, timespec* left);
}

namespace jextest {

CallHooks& callHooks() {
  static auto* const hooks = new CallHooks;  // the receive thread calls while the process ends
  return *hooks;
}

int realPoll(nn_pollfd* fds, int count, int timeout) { return __real_nn_poll(fds, count, timeout); }

int realSend(int sock, const void* buffer, size_t size, int flags) {
  return __real_nn_send(sock, buffer, size, flags);
}

int realReceive(int sock, void* buffer, size_t size, int flags) {
  return __real_nn_recv(sock, buffer, size, flags);
}

int realPause(const timespec* wanted, timespec* left) { return __real_nanosleep(wanted, left); }

}  // namespace jextest

using jextest::callHooks;

extern "C" {

__attribute__((visibility("default"))) int __wrap_nn_poll(nn_pollfd* fds, int count, int timeout) {
  return callHooks().poll ? callHooks().poll(fds, count, timeout)
                          : __real_nn_poll(fds, count, timeout);
}

__attribute__((visibility("default"))) int __wrap_nn_send(int sock, const void* buffer, size_t size,
                                                          int flags) {
  return callHooks().send ? callHooks().send(sock, buffer, size, flags)
                          : __real_nn_send(sock, buffer, size, flags);
}

__attribute__((visibility("default"))) int __wrap_nn_recv(int sock, void* buffer, size_t size,
                                                          int flags) {
  return callHooks().receive ? callHooks().receive(sock, buffer, size, flags)
                             : __real_nn_recv(sock, buffer, size, flags);
}

__attribute__((visibility("default"))) int __wrap_nanosleep(const timespec* wanted,
                                                            timespec* left) {
  return callHooks().pause ? callHooks().pause(wanted, left) : __real_nanosleep(wanted, left);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
