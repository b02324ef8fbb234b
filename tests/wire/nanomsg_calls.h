// nanomsg's functions as a test wants them: a binary that links with --wrap of them sees every call
// of the library's and of its own code, and may answer in nanomsg's place.
#pragma once

#include <nanomsg/nn.h>

#include <functional>

namespace jextest {

/// Functions that are asked in nanomsg's place; an empty one leaves nanomsg's. Any thread calls
/// them.
struct NanomsgCalls {
  std::function<int(nn_pollfd*, int, int)> poll;
  std::function<int(int, const void*, size_t, int)> send;
  std::function<int(int, void*, size_t, int)> recv;
  std::function<int(void*)> freemsg;
};

/// Puts `calls` before nanomsg's while it lives; the calls outlive it. One at a time.
class NanomsgInFront {
 public:
  explicit NanomsgInFront(const NanomsgCalls* calls);
  ~NanomsgInFront();
  NanomsgInFront(const NanomsgInFront&) = delete;
  NanomsgInFront& operator=(const NanomsgInFront&) = delete;
};

// nanomsg's own.
int realPoll(nn_pollfd* fds, int nfds, int timeout);
int realSend(int s, const void* buf, size_t len, int flags);
int realRecv(int s, void* buf, size_t len, int flags);
int realFreemsg(void* msg);

}  // namespace jextest
