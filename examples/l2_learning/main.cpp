// l2_learning: a learning Ethernet switch, as a partner application.
//
//   l2_learning PROGRAM-FILE [AGE-SECONDS]
//
// The switch runs programs/l2_switch.json. A frame whose source is not in table `smac` on the port
// where it came in makes a digest; this program answers it with two entries: one in `smac`, so that
// the source is known and ages when it falls silent, one in `dmac`, so that frames to it leave on
// its port only instead of being flooded. A source that shows up on another port has moved there.
// An address that has been silent for AGE-SECONDS (default 300) is forgotten.
//
// Start a slice agent first. SIGINT and SIGTERM end the program, which takes its entries out again.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "JexHybridSlice/JexPartnerLib.h"

namespace {

constexpr char kProgram[] = "l2_switch";
constexpr jx_dev_id_t kDevice = 1;
constexpr uint32_t kLooksPerAge = 10;  // how often an entry is checked until it ages
constexpr long kMaxAgeSeconds = 1'000'000;
constexpr size_t kBatch = 64;

// ---- plumbing ---------------------------------------------------------------------------------

constexpr char kUsage[] = "usage: l2_learning PROGRAM-FILE [AGE-SECONDS]\n";

bool succeeded(jx_status_t status, const std::string& what) {
  if (status == JX_SUCCESS) return true;
  const char* text = nullptr;
  jx_rt_err_str(status, &text);
  std::fprintf(stderr, "l2_learning: %s: %s\n", what.c_str(), text);
  return false;
}

void must(jx_status_t status, const char* what) {
  if (!succeeded(status, what)) std::exit(EXIT_FAILURE);
}

// The age in milliseconds. Ends the process if the command line asks for nothing to be done.
uint32_t readAge(int argc, char** argv) {
  if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    std::printf(
        "%sLearns which address is behind which port of the switch. An address that is\n"
        "silent for AGE-SECONDS (1 to %ld, default 300) is forgotten.\n",
        kUsage, kMaxAgeSeconds);
    std::exit(EXIT_SUCCESS);
  }
  char* end = nullptr;
  const long age_s = argc == 3 ? std::strtol(argv[2], &end, 10) : 300;
  if (argc < 2 || argc > 3 || age_s < 1 || age_s > kMaxAgeSeconds || (end && *end != '\0')) {
    std::fputs(kUsage, stderr);
    std::exit(2);
  }
  return static_cast<uint32_t>(age_s) * 1000;
}

// A socket must not get the number of a standard descriptor that is closed.
void openStandardDescriptors() {
  int fd = open("/dev/null", O_RDWR);
  while (fd >= 0 && fd <= STDERR_FILENO) fd = open("/dev/null", O_RDWR);
  close(fd);
}

// SIGINT and SIGTERM: blocked in all threads, taken by waiting for them.
sigset_t blockEndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

// PartnerLibStartup waits for an agent, however long that takes: a thread ends the process then.
void* endWhileWaiting(void* signals) {
  int number = 0;
  sigwait(static_cast<const sigset_t*>(signals), &number);
  _exit(EXIT_SUCCESS);
}

// ---- what the switch's program says -----------------------------------------------------------

using Mac = std::array<uint8_t, 6>;

std::string textOf(const Mac& m) {
  char text[18];
  std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4],
                m[5]);
  return text;
}

// The values of digest `mac_learn`: each field in network byte order, rounded up to bytes.
struct Learned {
  Mac source;
  uint8_t port[2];  // 9 bits
};
static_assert(sizeof(Learned) == 8);

// ---- the two tables ---------------------------------------------------------------------------

class LearningSwitch {
 public:
  LearningSwitch(const jxrt::JxRtSession& session, const jx_rt_target_t& target, uint32_t age_ms)
      : session_(session), target_(target), age_ms_(age_ms) {
    const jxrt::JxRtInfo* info = nullptr;
    must(jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(target.dev_id, kProgram, &info), kProgram);
    must(info->tableFromNameGet("smac", &smac_), "table smac");
    must(info->tableFromNameGet("dmac", &dmac_), "table dmac");
    must(smac_->keyFieldIdGet("ethernet.src", &source_), "smac: ethernet.src");
    must(smac_->keyFieldIdGet("meta.ingress_port", &ingress_), "smac: meta.ingress_port");
    must(smac_->actionIdGet("known", &known_), "smac: known");
    must(smac_->dataFieldIdGet(JX_RT_FIELD_TTL, &ttl_), "smac: " JX_RT_FIELD_TTL);
    must(dmac_->keyFieldIdGet("ethernet.dst", &destination_), "dmac: ethernet.dst");
    must(dmac_->actionIdGet("forward", &forward_), "dmac: forward");
    must(dmac_->dataFieldIdGet("port", forward_, &port_), "dmac: port");
    must(smac_->keyAllocate(&smac_key_), "smac: key");
    must(smac_->dataAllocate(known_, &smac_data_), "smac: data");
    must(dmac_->keyAllocate(&dmac_key_), "dmac: key");
    must(dmac_->dataAllocate(forward_, &dmac_data_), "dmac: data");
  }

  // A frame from an address that was not known on this port.
  void learn(const Mac& mac, uint32_t port) {
    const auto known = hosts_.find(mac);
    const bool moves = known != hosts_.end();
    if (moves) {
      if (known->second.port == port) return;  // it came before its predecessor's entry was there
      forget(mac);
    }
    if (!addSource(mac, port)) return;
    addDestination(mac, port);
    std::printf("%s %s on port %u\n", moves ? "moved" : "learned", textOf(mac).c_str(), port);
  }

  // The smac entry with this handle had been silent at this time.
  void age(uint32_t handle, uint64_t time) {
    const auto found = macs_.find(handle);
    if (found == macs_.end()) return;  // it has moved meanwhile
    const Mac mac = found->second;
    if (time < hosts_.at(mac).since) return;  // an older entry, whose handle is in use again
    std::printf("aged %s on port %u\n", textOf(mac).c_str(), hosts_.at(mac).port);
    forget(mac);
  }

  // Leaves the switch as it was, for whoever programs it next.
  void forgetAll() {
    while (!hosts_.empty()) forget(Mac(hosts_.begin()->first));
  }

 private:
  struct Host {
    uint32_t port;
    uint32_t handle;  // of its smac entry
    uint64_t since;   // when that was made
  };

  void forget(const Mac& mac) {
    removeSource(mac, hosts_.at(mac));
    removeDestination(mac);
    hosts_.erase(mac);
  }

  bool addSource(const Mac& mac, uint32_t port) {
    Host host{port, 0, PartnerGetTimestamp()};
    setSourceKey(mac, port);
    smac_data_->setValue(ttl_, uint64_t{age_ms_});
    if (!succeeded(smac_->tableEntryAdd(session_, target_, 0, *smac_key_, *smac_data_),
                   "learn " + textOf(mac))) {
      return false;  // the table is full: the next frame asks again
    }
    must(smac_->tableEntryHandleGet(session_, target_, *smac_key_, &host.handle), "smac: handle");
    hosts_[mac] = host;
    macs_[host.handle] = mac;
    return true;
  }

  void removeSource(const Mac& mac, const Host& host) {
    macs_.erase(host.handle);
    setSourceKey(mac, host.port);
    succeeded(smac_->tableEntryDel(session_, target_, 0, *smac_key_), "forget " + textOf(mac));
  }

  void addDestination(const Mac& mac, uint32_t port) {
    dmac_key_->setValue(destination_, mac.data(), mac.size());
    dmac_data_->setValue(port_, uint64_t{port});
    succeeded(dmac_->tableEntryAdd(session_, target_, 0, *dmac_key_, *dmac_data_),
              "direct " + textOf(mac));
  }

  void removeDestination(const Mac& mac) {
    dmac_key_->setValue(destination_, mac.data(), mac.size());
    succeeded(dmac_->tableEntryDel(session_, target_, 0, *dmac_key_), "flood " + textOf(mac));
  }

  void setSourceKey(const Mac& mac, uint32_t port) {
    smac_key_->setValue(source_, mac.data(), mac.size());
    smac_key_->setValue(ingress_, uint64_t{port});
  }

  const jxrt::JxRtSession& session_;
  const jx_rt_target_t target_;
  const uint32_t age_ms_;
  const jxrt::JxRtTable* smac_ = nullptr;
  const jxrt::JxRtTable* dmac_ = nullptr;
  uint32_t source_ = 0, ingress_ = 0, known_ = 0, ttl_ = 0;  // of smac
  uint32_t destination_ = 0, forward_ = 0, port_ = 0;        // of dmac
  std::unique_ptr<jxrt::JxRtTableKey> smac_key_, dmac_key_;  // used again for each write
  std::unique_ptr<jxrt::JxRtTableData> smac_data_, dmac_data_;
  std::map<Mac, Host> hosts_;
  std::map<uint32_t, Mac> macs_;  // by the handles of smac entries
};

// ---- notifications ----------------------------------------------------------------------------

void handle(const void* notification, LearningSwitch* lan) {
  if (*static_cast<const uint8_t*>(notification) == PARTNER_NOTIFY_IDLE) {
    const auto* idle = static_cast<const PartnerIdleNotify*>(notification);
    lan->age(idle->entryKey, idle->time);
    return;
  }
  const auto* digest = static_cast<const PartnerDigestNotify*>(notification);
  if (digest->valueSize != sizeof(Learned)) return;
  Learned learned;
  std::memcpy(&learned, digest + 1, sizeof(learned));
  lan->learn(learned.source, (uint32_t{learned.port[0]} << 8) | learned.port[1]);
}

// Handles what has come. False if nothing had.
bool drain(PartnerNotificationQueueHandle queue, LearningSwitch* lan) {
  void* values[kBatch];
  const size_t count = PartnerNotificationQueueTryDequeue(queue, values, kBatch);
  for (size_t i = 0; i < count; ++i) handle(values[i], lan);
  PartnerNotificationQueueValuesFree(values, count);
  std::fflush(stdout);
  return count != 0;
}

// Learns and forgets until one of the signals comes.
void serve(const jxrt::JxRtSession& session, const jx_rt_target_t& target, uint32_t age_ms,
           const sigset_t& signals) {
  LearningSwitch lan(session, target, age_ms);
  PartnerNotificationQueueHandle queue = nullptr;
  PartnerNotificationQueueCreate("l2_learning", 4096, &queue);
  PartnerRegisterIdleNotification(kProgram, "smac", age_ms / kLooksPerAge + 1, age_ms, age_ms,
                                  target, session.cHandle(), queue);
  PartnerRegisterDigestNotification(kProgram, "mac_learn", target, session.cHandle(), queue);
  std::printf("l2_learning: ready\n");
  std::fflush(stdout);
  timespec pause = {0, 0};
  while (sigtimedwait(&signals, nullptr, &pause) < 0) {
    pause.tv_nsec = drain(queue, &lan) ? 0 : 1'000'000;
  }
  // No more of them from here on; then what is still queued, and last the queue.
  PartnerDeregisterDigestNotification(kProgram, "mac_learn", target);
  PartnerDeregisterIdleNotification(kProgram, "smac", target);
  while (drain(queue, &lan)) continue;
  PartnerNotificationQueueDestroy(queue);
  lan.forgetAll();
}

}  // namespace

int main(int argc, char** argv) {
  const uint32_t age_ms = readAge(argc, argv);
  openStandardDescriptors();
  signal(SIGPIPE, SIG_IGN);
  sigset_t signals = blockEndSignals();
  pthread_t waiter;
  if (pthread_create(&waiter, nullptr, endWhileWaiting, &signals) != 0) return EXIT_FAILURE;

  const std::shared_ptr<jxrt::JxRtSession> session = jxrt::JxRtSession::sessionCreate();
  if (session == nullptr) must(JX_MAX_SESSIONS_EXCEEDED, "session");
  const char* const files[] = {argv[1]};
  jx_device_profile_t profile = {1, files, 0};
  const jx_rt_target_t target = {kDevice, JX_PIPE_ALL, 0, 0};
  PartnerLibStartup(*session, target, JX_DEV_TYPE_ANY, &profile);
  pthread_cancel(waiter);
  pthread_join(waiter, nullptr);

  serve(*session, target, age_ms, signals);
  PartnerLibShutdown(kDevice);
  return EXIT_SUCCESS;
}
