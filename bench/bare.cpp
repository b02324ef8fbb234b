#include "bare.h"

#include <nanomsg/nn.h>
#include <nanomsg/pipeline.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "child.h"
#include "clock.h"
#include "switch_side.h"

namespace bench {
namespace {

constexpr char kAddress[] = "ipc:///tmp/jex-bench-bare";

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "replicate: bare loop: %s: %s\n", what, nn_strerror(nn_errno()));
  std::exit(EXIT_FAILURE);
}

bool polled(int sock, short event, int timeout_ms) {
  nn_pollfd entry = {sock, event, 0};
  return nn_poll(&entry, 1, timeout_ms) > 0 && (entry.revents & event) != 0;
}

void sendOne(int sock, const std::vector<char>& message) {
  while (!polled(sock, NN_POLLOUT, 0)) {
    const timespec none = {0, 0};
    nanosleep(&none, nullptr);
  }
  if (nn_send(sock, message.data(), message.size(), 0) < 0) fail("send");
}

/// False if nothing was there.
bool receiveOne(int sock, int polls) {
  if (!polled(sock, NN_POLLIN, kReceiveTimeoutMs)) return false;
  for (int i = 1; i < polls; ++i) {
    if (!polled(sock, NN_POLLIN, 0)) return false;
  }
  void* message = nullptr;
  if (nn_recv(sock, &message, NN_MSG, 0) < 0) return false;
  nn_freemsg(message);
  return true;
}

}  // namespace

void bareSend(uint64_t count, size_t size) {
  const int sock = nn_socket(AF_SP, NN_PUSH);
  if (sock < 0 || nn_connect(sock, kAddress) < 0) fail("connect");
  const std::vector<char> message(size, 'x');
  sendOne(sock, message);  // not counted: waits until the connection stands
  const uint64_t begin = now();
  const uint64_t cpu = processCpu();
  const uint64_t caller_cpu = threadCpu();
  for (uint64_t i = 0; i < count; ++i) sendOne(sock, message);
  report({{"begin", begin},
          {"end", now()},
          {"cpu", processCpu() - cpu},
          {"caller_cpu", threadCpu() - caller_cpu}});
  awaitEnd();
}

void bareReceive(uint64_t count, int polls) {
  const int sock = nn_socket(AF_SP, NN_PULL);
  if (sock < 0 || nn_bind(sock, kAddress) < 0) fail("bind");
  report({{"ready", true}});
  while (!receiveOne(sock, polls)) continue;  // the one that is not counted
  const uint64_t cpu = processCpu();
  for (uint64_t received = 0; received < count;) received += receiveOne(sock, polls) ? 1 : 0;
  report({{"end", now()}, {"cpu", processCpu() - cpu}});
  awaitEnd();
}

}  // namespace bench
