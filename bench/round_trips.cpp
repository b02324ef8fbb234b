#include "round_trips.h"

#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <nanomsg/pipeline.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "JexHybridSlice/JexPartnerLib.h"
#include "JexHybridSlice/JexPartnerLibWire.h"
#include "bare_failure.h"
#include "child.h"
#include "clock.h"
#include "notification_flow.h"
#include "partner_process.h"

namespace bench {
namespace {

constexpr char kRequests[] = "ipc:///tmp/jex-bench-requests";
constexpr char kReplies[] = "ipc:///tmp/jex-bench-replies";
constexpr uint64_t kWarmUp = 100;

int opened(int protocol) {
  const int sock = nn_socket(AF_SP, protocol);
  if (sock < 0) failBare("socket");
  return sock;
}

template <typename RoundTrip>
[[noreturn]] void measure(uint64_t count, const RoundTrip& round_trip) {
  for (uint64_t i = 0; i < kWarmUp; ++i) round_trip(i + 1);
  std::vector<double> times;
  for (uint64_t i = 0; i < count; ++i) {
    const uint64_t begin = now();
    round_trip(kWarmUp + i + 1);
    times.push_back(static_cast<double>(now() - begin));
  }
  report({{"times", times}});
  awaitEnd();
}

}  // namespace

void answeringAgent(const char* program) {
  serveAsAgent(program);
  report({{"ready", true}});
  for (;;) {
    std::istringstream line(awaitLine());
    std::string what;
    int pid = 0;
    uint32_t learn = 0;
    uint64_t count = 0;
    line >> what >> pid >> learn >> count;
    notifyPartner(pid, learn, count, what == "paced");
    report({{"sent", count}});
  }
}

void barrierPartner(const char* program, uint64_t count) {
  const PartnerProcess partner(program);
  // A barrier is named by its time stamp: each gets one of its own, which the clock's milliseconds
  // would not give it.
  measure(count, [pid = getpid()](uint64_t name) {
    sendBarrier(0, name, pid);
    while (PartnerBarrierGetLastComplete() != name) std::this_thread::yield();
  });
}

void bareAnswers() {
  const int requests = opened(NN_PULL);
  const int replies = opened(NN_PAIR);
  if (nn_bind(requests, kRequests) < 0 || nn_connect(replies, kReplies) < 0) failBare("bind");
  report({{"ready", true}});
  for (;;) {
    void* message = nullptr;
    if (nn_recv(requests, &message, NN_MSG, 0) < 0) failBare("receive");
    PartnerLib::BarrierReply_t reply = {};
    reply.kind = PartnerLib::kBarrierReplyKind;
    reply.timestamp = static_cast<const PartnerLib::BarrierMsg_t*>(message)->barrier.timestamp;
    nn_freemsg(message);
    if (nn_send(replies, &reply, sizeof(reply), 0) < 0) failBare("answer");
  }
}

void bareAsks(uint64_t count) {
  const int replies = opened(NN_PAIR);
  const int requests = opened(NN_PUSH);
  if (nn_bind(replies, kReplies) < 0 || nn_connect(requests, kRequests) < 0) failBare("connect");
  measure(count, [=](uint64_t name) {
    PartnerLib::BarrierMsg_t message = {};
    message.barrier.timestamp = name;
    if (nn_send(requests, &message, sizeof(message), 0) < 0) failBare("send");
    PartnerLib::BarrierReply_t reply = {};
    if (nn_recv(replies, &reply, sizeof(reply), 0) < 0 || reply.timestamp != name)
      failBare("answer");
  });
}

}  // namespace bench
