// slice-agent: owns a physical device and replays on it what partners do on their virtual ones.
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "agent.h"
#include "configure.h"
#include "host_port.h"
#include "loop_probe.h"
#include "registrations.h"
#include "signals.h"
#include "socket_files.h"
#include "start_error.h"
#include "start_guard.h"

namespace slice_agent {
namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kMaxMilliseconds = std::numeric_limits<int>::max();

struct Options {
  std::vector<std::string> programs;
  int device = 0;
  int timeout_ms = 100;
  int heartbeat_ms = 0;
  int counter_update_ms = 1000;
  bool model_counter_update = false;
  std::string control = "127.0.0.1:50051";
  std::string configure;
  std::vector<std::string> ports;
  std::string clock = "real";
};

constexpr const char* kNoControl = "off";

/// What is wrong with a value of --control.
std::string checkControl(const std::string& address) {
  return address == kNoControl ? std::string() : jexapps::checkHostPort(address);
}

/// The exit status, where the command line ends the program already.
std::optional<int> parse(int argc, char** argv, Options* options) {
  const CLI::Range interval(0, kMaxMilliseconds);
  CLI::App app{
      "Owns a physical device and replays on it what partners do on their virtual devices.\n"
      "Serves partners on ipc:///tmp/Partner0 until SIGINT, SIGTERM or SIGHUP.",
      "slice-agent"};
  app.set_version_flag("--version", "slice-agent " JEX_VERSION);
  app.add_option(
         "--program", options->programs,
         "P4 program to load: a description, the compiler's JSON (with its P4Info beside it, "
         "or as JSON,P4INFO), or P4Info alone; repeatable")
      ->required()
      ->type_name("FILE")
      ->allow_extra_args(false);  // one file an option
  app.add_option("--device", options->device, "Number of the device")
      ->check(CLI::Range(0, 255))
      ->capture_default_str();
  app.add_option("--timeout-ms", options->timeout_ms, "Longest wait for one request")
      ->check(interval)
      ->capture_default_str();
  app.add_option("--heartbeat-ms", options->heartbeat_ms,
                 "Interval of heartbeats to partners, which stop the agent when a partner that has "
                 "registered is gone or hangs; for partners that live and die with the agent. "
                 "0: none")
      ->check(interval)
      ->capture_default_str();
  app.add_option("--counter-update-ms", options->counter_update_ms,
                 "Interval of updates of the counters that partners have started; 0: none")
      ->check(interval)
      ->capture_default_str();
  app.add_flag("--model-counter-update", options->model_counter_update,
               "Sync each table twice an update, as software models of the chip need it");
  app.add_option("--control", options->control,
                 "Address of the control server, HOST:PORT (port 0: a free one), or off")
      ->check(CLI::Validator(checkControl, ""))
      ->capture_default_str();
  app.add_option("--configure", options->configure,
                 "Set-up file, carried out before partners connect and packets move: entries, "
                 "registers, meters, multicast groups, clone sessions")
      ->type_name("FILE");
  app.add_option("--port", options->ports,
                 "Attach a port: N=if:NAME or N=pcap:IN[,OUT]; repeatable")
      ->type_name("SPEC")
      ->allow_extra_args(false);
  app.add_option("--clock", options->clock,
                 "Time of the device: real, or that of the captures that come in")
      ->check(CLI::IsMember({"real", "capture"}))
      ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& wanted) {
    return app.exit(wanted);  // --help, --version
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "slice-agent: %s (see slice-agent --help)\n", error.what());
    return kExitUsage;
  }
  return std::nullopt;
}

/// Whether the socket file, if there is one, is that of this process.
std::atomic<bool> has_socket_file{false};

/// Nobody tells the loop to end, so the process ends around it: no destructor runs under the
/// threads that are still at work. At any time, by the thread that waits for signals.
[[noreturn]] void leave() {
  if (has_socket_file) removeAgentSocket();
  std::fflush(nullptr);
  _exit(EXIT_SUCCESS);
}

/// A partner takes four descriptors, so that the usual 1024 are used up before the sockets of the
/// messaging library are.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

void takeSocket() {
  makeRoomForAgentSocket();
  const size_t removed = removeStalePartnerSockets();
  if (removed == 0) return;
  std::fprintf(stderr, "slice-agent: removed %zu sockets of partners that have ended from %s\n",
               removed, kSocketFolder);
}

void awaitServing() {
  while (!socketAccepts(kAgentSocketFile)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

/// Ready when it returns.
void serve(const Options& options) {
  std::optional<SetupFile> setup;
  if (!options.configure.empty()) setup.emplace(options.configure);
  takeSocket();
  addPhysicalDevice(options.device, options.programs);
  if (options.clock == "capture") followCaptureTime();
  if (setup) setup->apply(options.device);
  if (!options.ports.empty()) attachPorts(options.device, options.ports);
  const size_t tables = countTables(options.device);
  const bool has_control = options.control != kNoControl;
  if (has_control) {
    const std::string address = startControlServer(options.control);
    std::fprintf(stderr, "slice-agent: control server on %s\n", address.c_str());
  }
  has_socket_file = true;
  startAgentLoop(options.device, options.timeout_ms);
  awaitServing();
  if (has_control) startLoopProbe();
  watchRegistrations(1 + (has_control ? kProbeSockets : 0));
  if (options.heartbeat_ms > 0) startHeartbeat(std::chrono::milliseconds(options.heartbeat_ms));
  if (options.counter_update_ms > 0) {
    startCounterUpdate(
        std::chrono::milliseconds(options.counter_update_ms),
        options.model_counter_update ? CounterUpdate::kModel : CounterUpdate::kPlain);
  }
  std::printf("slice-agent: ready, device %d, %zu tables, %s\n", options.device, tables,
              kAgentAddress);
  std::fflush(stdout);
  if (!options.ports.empty()) startCaptures(options.device);
}

[[noreturn]] void fail(int status) {
  if (has_socket_file) removeAgentSocket();
  std::fflush(nullptr);
  _exit(status);
}

int run(int argc, char** argv) {
  Options options;
  if (const std::optional<int> status = parse(argc, argv, &options)) return *status;
  guardStart();
  checkAddressSpace();
  handleSignals(leave);
  raiseDescriptorLimit();
  serve(options);
  endOfStart();
  for (;;) pause();
}

}  // namespace
}  // namespace slice_agent

int main(int argc, char** argv) {
  try {
    return slice_agent::run(argc, argv);
  } catch (const slice_agent::ConfigureError& error) {
    std::fprintf(stderr, "slice-agent: %s\n", error.what());
    slice_agent::fail(slice_agent::kExitUsage);
  } catch (const slice_agent::ProgramError&) {  // has been told
  } catch (const std::exception& error) {       // a StartError, or memory is out
    std::fprintf(stderr, "slice-agent: %s\n", error.what());
  }
  slice_agent::fail(slice_agent::kExitFailure);
}
