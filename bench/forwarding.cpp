#include "forwarding.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <thread>

#include "JexHybridSlice/JexPartnerLib.h"
#include "child.h"
#include "churn.h"
#include "clock.h"
#include "cpu.h"
#include "model/device/registry.h"
#include "model/pipeline/pipeline.h"
#include "model/runtime/rt_info.h"
#include "spread.h"
#include "switch_side.h"

namespace {

std::atomic<uint64_t> operations_processed{0};

}  // namespace

// The linker lets the agent's loop call this one, so that what arrives is counted where it arrives.
extern "C" {
jx_status_t __real_pipe_process_plcmt_info(  // NOLINT: the linker's name
    pipe_sess_hdl_t session, jx_dev_id_t device, pipe_tbl_hdl_t table, pipe_plcmt_info* info,
    uint32_t flags, uint32_t* processed);
jx_status_t __wrap_pipe_process_plcmt_info(  // NOLINT: the linker's name
    pipe_sess_hdl_t session, jx_dev_id_t device, pipe_tbl_hdl_t table, pipe_plcmt_info* info,
    uint32_t flags, uint32_t* processed) {
  const jx_status_t status =
      __real_pipe_process_plcmt_info(session, device, table, info, flags, processed);
  operations_processed.fetch_add(1, std::memory_order_release);
  return status;
}
}

namespace bench {
namespace {

using Json = nlohmann::ordered_json;
using Updates = std::function<uint64_t()>;

constexpr char kAgentSocketFile[] = "/tmp/Partner0";
constexpr jx_dev_id_t kPhysical = 0;

uint64_t arrived() { return operations_processed.load(std::memory_order_acquire); }

/// Gives up after a minute without progress.
void awaitArrived(uint64_t count) {
  uint64_t seen = arrived(), since = now();
  while (seen < count) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const uint64_t current = arrived();
    if (current != seen) since = now();
    seen = current;
    if (now() - since > 60'000'000'000) throw std::runtime_error("updates do not arrive");
  }
  if (seen > count) throw std::runtime_error("more updates arrived than were sent");
}

/// The partner, which updates between start() and stop().
class Partner {
 public:
  explicit Partner(const Case& one) : child_("partner", one.arguments()) { awaitAll(); }

  /// Returns when updates flow.
  void start() {
    const uint64_t before = arrived();
    child_.writeLine("go");
    while (arrived() == before) std::this_thread::yield();
  }
  /// Returns when the tables are what they were.
  void stop() {
    child_.writeLine("stop");
    awaitAll();
  }
  void end() { child_.finish(); }

 private:
  void awaitAll() { awaitArrived(child_.readLine()["updates"].get<uint64_t>()); }

  Child child_;
};

/// Of one round.
struct Run {
  double cpu_rate;    // packets a second of the packet thread's CPU time
  double clock_rate;  // packets a second of the clock on the wall
  double forwarded;   // part of the packets that left
  double updates;     // a second
  double running;     // part of the clock's time in which the packet thread had a CPU
  double locked;      // look-ups, per million packets, that waited for an update
};

uint64_t runFrames(const jxmodel::Pipeline& pipeline, Traffic& traffic) {
  uint64_t left = 0;
  for (const Traffic::Frame& frame : traffic.frames()) {
    const jxmodel::Outcome outcome =
        pipeline.run({traffic.at(frame), frame.size, frame.wire_size, kIngressPort}, nullptr);
    left += outcome.kind == jxmodel::Outcome::Kind::kDropped ? 0 : 1;
  }
  return left;
}

/// Runs the traffic over and over, at least so many packets. `updates` counts those so far.
Run run(const jxmodel::Pipeline& pipeline, Traffic& traffic, uint64_t packets,
        const Updates& updates) {
  const CpuForPackets cpu_for_packets;
  const uint64_t locked_before = pipeline.counts().locked_lookups;
  uint64_t ran = 0, left = 0, cpu = 0, clock = 0, updated = 0;
  while (ran < packets) {
    traffic.restore();  // not measured: packets would come from a port
    const uint64_t updates_before = updates();
    const uint64_t clock_before = now();
    const uint64_t cpu_before = threadCpu();
    left += runFrames(pipeline, traffic);
    cpu += threadCpu() - cpu_before;
    clock += now() - clock_before;
    updated += updates() - updates_before;
    ran += traffic.frames().size();
  }
  const auto count = static_cast<double>(ran);
  const double seconds = static_cast<double>(clock) / 1e9;
  return {count / (static_cast<double>(cpu) / 1e9),
          count / seconds,
          static_cast<double>(left) / count,
          static_cast<double>(updated) / seconds,
          static_cast<double>(cpu) / static_cast<double>(clock),
          static_cast<double>(pipeline.counts().locked_lookups - locked_before) * 1e6 / count};
}

std::vector<double> each(const std::vector<Run>& runs, double Run::*member) {
  std::vector<double> values;
  for (const Run& run : runs) values.push_back(run.*member);
  return values;
}

std::vector<double> ratios(const std::vector<Run>& runs, const std::vector<Run>& bases) {
  std::vector<double> values;
  for (size_t i = 0; i < runs.size(); ++i) values.push_back(runs[i].cpu_rate / bases[i].cpu_rate);
  return values;
}

Json figures(const std::vector<Run>& runs, const std::vector<Run>& alone) {
  return {{"rate", spread(each(runs, &Run::cpu_rate))},
          {"by_the_clock", spread(each(runs, &Run::clock_rate))},
          {"ratio", spread(ratios(runs, alone))},
          {"forwarded", spread(each(runs, &Run::forwarded))},
          {"updates", spread(each(runs, &Run::updates))},
          {"running", spread(each(runs, &Run::running))},
          {"locked_lookups_per_million", spread(each(runs, &Run::locked))}};
}

jxmodel::TableState& tableOf(const jxmodel::Device& device, const std::string& name) {
  for (jxmodel::TableState* state : device.infos().front()->states()) {
    if (state->table->name == name) return *state;
  }
  throw std::runtime_error("no table " + name);
}

Json measure(jxmodel::Device& device, Partner& partner, const std::string& churned,
             Traffic& traffic, const Effort& effort) {
  const jxmodel::Pipeline pipeline(device.core(), device.forwarding());
  const auto none = [] { return uint64_t{0}; };
  std::vector<Run> alone, thread, socket;
  run(pipeline, traffic, traffic.frames().size(), none);  // pages and caches are touched once
  for (int round = 0; round < effort.rounds; ++round) {
    alone.push_back(run(pipeline, traffic, effort.packets, none));
    {
      const Churn churn(device, tableOf(device, churned));
      thread.push_back(run(pipeline, traffic, effort.packets, [&] { return churn.updates(); }));
    }
    partner.start();
    socket.push_back(run(pipeline, traffic, effort.packets, arrived));
    partner.stop();
  }
  return {{"alone", figures(alone, alone)},
          {"thread", figures(thread, alone)},
          {"partner", figures(socket, alone)}};
}

/// The agent's loop in a thread of its own; returns when partners can connect.
void serve(const Case& one, const jxrt::JxRtSession& session) {
  unlink(kAgentSocketFile);
  bringUpSdk();
  const std::string file = programFile(one.program);
  Profile profile(file);
  check(jx_device_add(kPhysical, profile.get(), JX_DEV_TYPE_ANY), "physical device");
  jx_rt_session_hdl* const loop_session = session.cHandle();
  std::thread([=] {
    PartnerLibServerStartup(loop_session, kPhysical, kReceiveTimeoutMs);
  }).detach();
  while (access(kAgentSocketFile, F_OK) != 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace

void forwarding(const Case& one, const Effort& effort) {
  signal(SIGPIPE, SIG_IGN);
  CpuForPackets::keepClear();  // before there are threads
  Traffic captures = Traffic::captures(std::string(JEX_TEST_DATA) + "/pcap");
  const Scenario scenario = scenarioOf(one, captures.macs());
  const std::shared_ptr<jxrt::JxRtSession> session = jxrt::JxRtSession::sessionCreate();
  serve(one, *session);
  Partner partner(one);
  const std::shared_ptr<jxmodel::Device> device =
      jxmodel::DeviceRegistry::instance().find(kPhysical);
  const auto tell = [&](const char* name, Traffic& traffic) {
    Json line = {{"tables", scenario.tables}, {"traffic", name}};
    line.update(measure(*device, partner, scenario.churned, traffic, effort));
    report(line);
  };
  tell("captures", captures);
  if (!scenario.routes.empty()) {
    const std::vector<jxpipelinetest::Prefix> routes = firstRoutes(effort.spread);
    Traffic spread_out = Traffic::acrossRoutes(routes, captures.frames().size());
    tell("all routes", spread_out);
  }
  partner.end();
  awaitEnd();
}

}  // namespace bench
