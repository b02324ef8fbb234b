#include "wire/nanomsg_calls.h"

#include <atomic>

namespace jextest {
namespace {

std::atomic<const NanomsgCalls*> in_front{nullptr};

}  // namespace

NanomsgInFront::NanomsgInFront(const NanomsgCalls* calls) { in_front = calls; }
NanomsgInFront::~NanomsgInFront() { in_front = nullptr; }

}  // namespace jextest

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
int __real_nn_poll(nn_pollfd* fds, int nfds, int timeout);
int __real_nn_send(int s, const void* buf, size_t len, int flags);
int __real_nn_recv(int s, void* buf, size_t len, int flags);
int __real_nn_freemsg(void* msg);

__attribute__((visibility("default"))) int __wrap_nn_poll(nn_pollfd* fds, int nfds, int timeout) {
  const jextest::NanomsgCalls* const calls = jextest::in_front;
  if (calls == nullptr || !calls->poll) return __real_nn_poll(fds, nfds, timeout);
  return calls->poll(fds, nfds, timeout);
}

__attribute__((visibility("default"))) int __wrap_nn_send(int s, const void* buf, size_t len,
                                                          int flags) {
  const jextest::NanomsgCalls* const calls = jextest::in_front;
  if (calls == nullptr || !calls->send) return __real_nn_send(s, buf, len, flags);
  return calls->send(s, buf, len, flags);
}

__attribute__((visibility("default"))) int __wrap_nn_recv(int s, void* buf, size_t len, int flags) {
  const jextest::NanomsgCalls* const calls = jextest::in_front;
  if (calls == nullptr || !calls->recv) return __real_nn_recv(s, buf, len, flags);
  return calls->recv(s, buf, len, flags);
}

__attribute__((visibility("default"))) int __wrap_nn_freemsg(void* msg) {
  const jextest::NanomsgCalls* const calls = jextest::in_front;
  if (calls == nullptr || !calls->freemsg) return __real_nn_freemsg(msg);
  return calls->freemsg(msg);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"

int jextest::realPoll(nn_pollfd* fds, int nfds, int timeout) {
  return __real_nn_poll(fds, nfds, timeout);
}
int jextest::realSend(int s, const void* buf, size_t len, int flags) {
  return __real_nn_send(s, buf, len, flags);
}
int jextest::realRecv(int s, void* buf, size_t len, int flags) {
  return __real_nn_recv(s, buf, len, flags);
}
int jextest::realFreemsg(void* msg) { return __real_nn_freemsg(msg); }
