// slice-agent: owns a physical device and replays on it what partners do on their virtual ones.
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "agent.h"
#include "socket_probe.h"

namespace slice_agent {
namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kMaxMilliseconds = std::numeric_limits<int>::max();

struct Options {
  std::vector<std::string> programs;
  int device = 0;
  int timeout_ms = 100;
  int heartbeat_ms = 1000;
  int counter_update_ms = 1000;
  bool model_counter_update = false;
  std::string control = "127.0.0.1:50051";
  std::vector<std::string> ports;
  std::string clock = "real";
};

/// Signals that end the agent. They are blocked in every thread, and main waits for them.
sigset_t endSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

/// The exit status, where the command line ends the program already.
std::optional<int> parse(int argc, char** argv, Options* options) {
  const CLI::Range milliseconds(0, kMaxMilliseconds);
  CLI::App app{
      "Owns a physical device and replays on it what partners do on their virtual devices.\n"
      "Serves partners on ipc:///tmp/Partner0 until SIGINT or SIGTERM.",
      "slice-agent"};
  app.set_version_flag("--version", "slice-agent " JEX_VERSION);
  app.add_option("--program", options->programs, "P4 program description to load; repeatable")
      ->required()
      ->type_name("FILE")
      ->allow_extra_args(false);  // one file an option
  app.add_option("--device", options->device, "Number of the device")
      ->check(CLI::Range(0, 255))
      ->capture_default_str();
  app.add_option("--timeout-ms", options->timeout_ms, "Longest wait for one request")
      ->check(milliseconds)
      ->capture_default_str();
  app.add_option("--heartbeat-ms", options->heartbeat_ms,
                 "Interval of heartbeats to partners; 0: none")
      ->check(milliseconds)
      ->capture_default_str();
  app.add_option("--counter-update-ms", options->counter_update_ms,
                 "Interval of updates of the counters that partners have started; 0: none")
      ->check(milliseconds)
      ->capture_default_str();
  app.add_flag("--model-counter-update", options->model_counter_update,
               "Sync each table twice an update, as software models of the chip need it");
  app.add_option("--control", options->control,
                 "Address of the control server, HOST:PORT (port 0: a free one), or off")
      ->capture_default_str();
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

/// Waits until the loop serves. False when a signal asked for the end before.
bool awaitServing(const sigset_t& signals) {
  const timespec pause{0, 1'000'000};
  while (!socketAccepts(kAgentSocketFile)) {
    if (sigtimedwait(&signals, nullptr, &pause) > 0) return false;
  }
  return true;
}

/// Nobody tells the loop to end, so the process ends around it: no destructor runs under the
/// threads that are still at work.
[[noreturn]] void leave() {
  unlink(kAgentSocketFile);
  std::fflush(nullptr);
  _exit(EXIT_SUCCESS);
}

[[noreturn]] void serve(const Options& options, const sigset_t& signals) {
  if (socketAccepts(kAgentSocketFile)) {
    throw StartError(std::string("another agent serves ") + kAgentAddress);
  }
  addPhysicalDevice(options.device, options.programs);
  if (options.clock == "capture") followCaptureTime();
  if (!options.ports.empty()) attachPorts(options.device, options.ports);
  const size_t tables = countTables(options.device);
  if (options.control != "off") {
    const std::string address = startControlServer(options.control);
    std::fprintf(stderr, "slice-agent: control server on %s\n", address.c_str());
  }
  startAgentLoop(options.device, options.timeout_ms);
  if (!awaitServing(signals)) leave();
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
  int signal_number = 0;
  while (sigwait(&signals, &signal_number) != 0) continue;
  leave();
}

int run(int argc, char** argv) {
  Options options;
  if (const std::optional<int> status = parse(argc, argv, &options)) return *status;
  const sigset_t signals = endSignals();
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  serve(options, signals);
}

}  // namespace
}  // namespace slice_agent

int main(int argc, char** argv) {
  try {
    return slice_agent::run(argc, argv);
  } catch (const slice_agent::ProgramError&) {  // has been told
  } catch (const std::exception& error) {       // a StartError, or memory is out
    std::fprintf(stderr, "slice-agent: %s\n", error.what());
  }
  return slice_agent::kExitFailure;
}
