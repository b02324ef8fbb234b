#include "loop_probe.h"

#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <nanomsg/pipeline.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "jxmodel/control.h"
#include "socket_files.h"
#include "start_error.h"
#include "threads.h"

namespace slice_agent {
namespace {

using std::chrono::milliseconds;

constexpr const char* kReverseAddress = "inproc://slice-agent-probe";
constexpr uint32_t kProbePid = 0;
/// What the process can be stopped within without a change of the patience.
constexpr milliseconds kSlice{100};

#pragma pack(push, 1)

/// What every request begins with.
struct RequestHeader {
  uint32_t type;
  uint32_t pid;
  uint64_t length;  // of the whole request
};

struct Registration {
  RequestHeader header;
  char address[64];
};
static_assert(sizeof(Registration) == 80);

struct Barrier {
  RequestHeader header;
  uint32_t table_id;  // 0: no counters are synced first
  uint8_t unused[256];
  uint64_t timestamp;
};
static_assert(sizeof(Barrier) == 284);

/// Answers a barrier. Other records of a reverse path, heartbeats, have another first byte.
struct BarrierReply {
  uint8_t kind;
  uint8_t more_of_kind[3];
  uint64_t timestamp;
};
static_assert(sizeof(BarrierReply) == 12);

#pragma pack(pop)

constexpr uint32_t kRegister = 4;
constexpr uint32_t kBarrier = 10;
constexpr uint8_t kBarrierReply = 0xFE;

void checkMessaging(int result, const char* what) {
  if (result >= 0) return;
  throw StartError(std::string("cannot probe the agent loop: ") + what + ": " +
                   nn_strerror(nn_errno()));
}

}  // namespace

LoopProbe::LoopProbe() : requests_(nn_socket(AF_SP, NN_PUSH)), replies_(nn_socket(AF_SP, NN_PAIR)) {
  checkMessaging(std::min(requests_, replies_), "socket");
  checkMessaging(nn_bind(replies_, kReverseAddress), "bind");
  checkMessaging(nn_connect(requests_, kAgentAddress), "connect");
  Registration registration{{kRegister, kProbePid, sizeof registration}, {}};
  std::strncpy(registration.address, kReverseAddress, sizeof registration.address - 1);
  checkMessaging(nn_send(requests_, &registration, sizeof registration, 0), "register");
}

bool LoopProbe::answersWithin(milliseconds patience) {
  for (milliseconds waited{0}; waited < patience; waited += kSlice) {
    if (!waiting_ && !ask()) continue;
    if (answeredWithin(kSlice)) return true;
  }
  return false;
}

void LoopProbe::rest(milliseconds time) {
  const auto end = Clock::now() + time;
  while (Clock::now() < end) takeUntil(end);
}

bool LoopProbe::answeredWithin(milliseconds time) {
  const auto end = Clock::now() + time;
  while (waiting_ && Clock::now() < end) takeUntil(end);
  return !waiting_;
}

/// Sends a barrier. False if there is no room for it, or the loop's end of the reverse path, where
/// it would answer, is not connected yet.
bool LoopProbe::ask() {
  nn_pollfd reverse{replies_, NN_POLLOUT, 0};
  if (nn_poll(&reverse, 1, static_cast<int>(kSlice.count())) <= 0) return false;
  const Barrier barrier{{kBarrier, kProbePid, sizeof barrier}, 0, {}, ++asked_};
  waiting_ = nn_send(requests_, &barrier, sizeof barrier, NN_DONTWAIT) == sizeof barrier;
  return waiting_;
}

/// Takes one record from the reverse path, if one comes by then.
void LoopProbe::takeUntil(Clock::time_point end) {
  const auto time = std::chrono::ceil<milliseconds>(end - Clock::now());
  nn_pollfd reverse{replies_, NN_POLLIN, 0};
  if (nn_poll(&reverse, 1, std::max(0, static_cast<int>(time.count()))) <= 0) return;
  BarrierReply reply{};
  const int size = nn_recv(replies_, &reply, sizeof reply, NN_DONTWAIT);
  const bool is_answer = size == sizeof reply && reply.kind == kBarrierReply;
  if (is_answer && reply.timestamp == asked_) waiting_ = false;
}

void startLoopProbe() {
  struct First {
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;
  };
  const auto first = std::make_shared<First>();
  const auto probe = std::make_shared<LoopProbe>();
  startThread("loop-probe", [first, probe] {
    for (;;) {
      jx_model_grpc_serving_set(probe->answersWithin(kProbePatience));
      {
        const std::lock_guard<std::mutex> lock(first->mutex);
        first->done = true;
      }
      first->changed.notify_all();
      probe->rest(kProbeInterval);
    }
  });
  std::unique_lock<std::mutex> lock(first->mutex);
  first->changed.wait(lock, [&] { return first->done; });
}

}  // namespace slice_agent
