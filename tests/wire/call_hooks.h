// Functions of a test that stand between the library and the calls with which it waits. They see
// every call that this binary's own objects make, the library's included, on whatever thread.
#pragma once

#include <nanomsg/nn.h>
#include <time.h>

#include <cstddef>
#include <functional>

namespace jextest {

/// An empty function leaves its call alone. Set them while no other thread makes the calls.
struct CallHooks {
  std::function<int(nn_pollfd* fds, int count, int timeout)> poll;
  std::function<int(int sock, const void* buffer, size_t size, int flags)> send;
  std::function<int(int sock, void* buffer, size_t size, int flags)> receive;
  std::function<int(const timespec* wanted, timespec* left)> pause;  ///< nanosleep
};
CallHooks& callHooks();

// The calls behind the hooks.
int realPoll(nn_pollfd* fds, int count, int timeout);
int realSend(int sock, const void* buffer, size_t size, int flags);
int realReceive(int sock, void* buffer, size_t size, int flags);
int realPause(const timespec* wanted, timespec* left);

}  // namespace jextest
