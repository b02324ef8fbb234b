// switchctl: looks into the devices of a slice agent, or of a partner in test mode, over gRPC, and
// attaches ports to an agent's device.
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "capture_out.h"
#include "client.h"
#include "entry.h"
#include "host_port.h"
#include "render.h"
#include "render_settings.h"
#include "setup_commands.h"
#include "stf_commands.h"

namespace switchctl {
namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kLastPort = 511;

struct Options {
  std::string target = "127.0.0.1:50051";
  bool json = false;
  Place place;
  std::string table;
  bool non_zero = false;
  std::string port_spec;
  uint32_t port = 0;
  std::string file;
  std::string name;
  std::vector<std::string> words;
  uint64_t count = 0;
  std::string direction = "both";

  Format format() const { return json ? Format::kJson : Format::kText; }
};

/// What is wrong with a name of something in a program; empty if it is UTF-8, as all of these are.
std::string checkName(const std::string& name) {
  try {
    static_cast<void>(nlohmann::json(name).dump());
    return {};
  } catch (const nlohmann::json::type_error&) {
    return "a name that is not UTF-8";
  }
}

/// Writes to standard output and does not take a full disk for success.
void print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
    throw CallError("cannot write to standard output");
  }
}

void finishOutput() {
  if (std::fflush(stdout) != 0) throw CallError("cannot write to standard output");
}

/// Says on a terminal how far a long piece of work has come; silent for the first second and where
/// nobody watches.
class Progress {
 public:
  explicit Progress(uint64_t total) : total_(total), watched_(isatty(STDERR_FILENO) == 1) {}
  ~Progress() { clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void update(uint64_t done) {
    if (!watched_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + std::chrono::milliseconds(200);
    std::fprintf(stderr, "\r%llu of %llu entries", static_cast<unsigned long long>(done),
                 static_cast<unsigned long long>(total_));
    shown_ = true;
  }
  void clear() {
    if (shown_) std::fputs("\r\033[K", stderr);
    shown_ = false;
  }

 private:
  const uint64_t total_;
  const bool watched_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point next_ =
      std::chrono::steady_clock::now() + std::chrono::seconds(1);
};

int runHealth(const Options& options, Client& client) {
  const std::string status = client.health();
  print(renderHealth(status, options.format()));
  return status == "SERVING" ? EXIT_SUCCESS : kExitFailure;
}

int runPrograms(const Options& options, Client& client) {
  std::vector<jx::control::v1::Program> programs = client.programs(options.place);
  if (options.place.program) {
    programs.erase(std::remove_if(programs.begin(), programs.end(),
                                  [&](const jx::control::v1::Program& program) {
                                    return program.name() != *options.place.program;
                                  }),
                   programs.end());
  }
  print(renderPrograms(programs, options.format()));
  return EXIT_SUCCESS;
}

int runTables(const Options& options, Client& client) {
  print(renderTables(client.tables(options.place), options.format()));
  return EXIT_SUCCESS;
}

int runDigests(const Options& options, Client& client) {
  print(renderDigests(client.digests(options.place), options.format()));
  return EXIT_SUCCESS;
}

int runCount(const Options& options, Client& client) {
  print(renderCount(options.table, client.count(options.table, options.place), options.format()));
  return EXIT_SUCCESS;
}

bool isZero(const jx::control::v1::Entry& entry) {
  return entry.has_counter() && entry.counter().packets() == 0 && entry.counter().bytes() == 0;
}

int runEntries(const Options& options, Client& client) {
  // Counted first for the progress, and because a count is given up when nobody answers.
  Progress progress(client.count(options.table, options.place));
  jexapps::Dump dump(options.json ? jexapps::DumpFormat::kJson : jexapps::DumpFormat::kText);
  jexapps::EntryView view;
  uint64_t seen = 0;
  client.entries(options.table, options.place, [&](const jx::control::v1::EntryChunk& chunk) {
    for (const jx::control::v1::Entry& entry : chunk.entries()) {
      if (options.non_zero && isZero(entry)) continue;
      toView(entry, &view);
      dump.add(view);
    }
    seen += static_cast<uint64_t>(chunk.entries_size());
    progress.update(seen);
  });
  progress.clear();
  dump.write(print);
  return EXIT_SUCCESS;
}

/// The port with its files named from the root, since the agent has a directory of its own. What
/// has no files stays as it is, and the agent says what is wrong with it.
std::string withAbsoluteFiles(const std::string& spec) {
  const std::string kind = "=pcap:";
  const size_t found = spec.find(kind);
  if (found == std::string::npos) return spec;
  std::string out = spec.substr(0, found + kind.size());
  for (size_t from = out.size(); from <= spec.size();) {
    const size_t comma = std::min(spec.find(',', from), spec.size());
    const std::string file = spec.substr(from, comma - from);
    if (!file.empty()) out += std::filesystem::absolute(file).string();
    if (comma < spec.size()) out += ',';
    from = comma + 1;
  }
  return out;
}

int runPortAdd(const Options& options, Client& client) {
  const auto port = client.addPort(withAbsoluteFiles(options.port_spec), options.place);
  print(renderPort(port, "attached", options.format()));
  return EXIT_SUCCESS;
}

int runPortDelete(const Options& options, Client& client) {
  const auto port = client.deletePort(options.port, options.place);
  print(renderPort(port, "detached", options.format()));
  return EXIT_SUCCESS;
}

int runPortUp(const Options& options, Client& client) {
  const auto port = client.setPort(options.port, true, options.place);
  print(renderPort(port, "set up", options.format()));
  return EXIT_SUCCESS;
}

int runPortDown(const Options& options, Client& client) {
  const auto port = client.setPort(options.port, false, options.place);
  print(renderPort(port, "set down", options.format()));
  return EXIT_SUCCESS;
}

int runPorts(const Options& options, Client& client) {
  print(renderPorts(client.ports(options.place), options.format()));
  return EXIT_SUCCESS;
}

int runInject(const Options& options, Client& client) {
  const auto reply = client.inject(options.port, options.file, options.place);
  print(renderInjected(reply, options.format()));
  return EXIT_SUCCESS;
}

int runTrace(const Options& options, Client& client) {
  const auto show = [&](const jx::control::v1::TracedPacket& packet) {
    print(renderTraced(packet, options.format()));
  };
  std::string digits;
  for (const std::string& word : options.words) digits += word;
  const std::string bytes = std::filesystem::exists(digits) ? std::string() : packetBytes(digits);
  if (bytes.empty()) {
    client.trace(options.port, digits, options.place, show);
  } else {
    client.tracePacket(options.port, bytes, options.place, show);
  }
  return EXIT_SUCCESS;
}

// --- set-up and packet tests

int runSet(const Options& options, Client& client) {
  applyWords(options.words, options.place, client);
  return EXIT_SUCCESS;
}

int runConfigure(const Options& options, Client& client) {
  applyFile(options.file, options.place, client);
  return EXIT_SUCCESS;
}

int runRegisters(const Options& options, Client& client) {
  print(showRegisters(options.name, options.non_zero, options.place, client, options.format()));
  return EXIT_SUCCESS;
}

int runMeters(const Options& options, Client& client) {
  print(showMeters(options.name, options.non_zero, options.place, client, options.format()));
  return EXIT_SUCCESS;
}

int runValueSets(const Options& options, Client& client) {
  print(renderValueSets(readSettings(options.place, client), options.format()));
  return EXIT_SUCCESS;
}

int runMulticast(const Options& options, Client& client) {
  print(renderMulticast(readSettings(options.place, client), options.format()));
  return EXIT_SUCCESS;
}

int runClones(const Options& options, Client& client) {
  print(renderClones(readSettings(options.place, client), options.format()));
  return EXIT_SUCCESS;
}

/// 1 says that something differed; that the test could not be run is another thing.
int runStf(const Options& options, Client& client) {
  try {
    const Outcome outcome = runPacketTest(options.file, options.place, client, options.format());
    print(outcome.text);
    return outcome.status;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "switchctl: %s\n", error.what());
    return kExitUsage;
  }
}

sigset_t endSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

/// Ends a capture or watch in order at SIGINT and SIGTERM, so that what it writes is whole. Every
/// thread of the process has them blocked.
class StopAtSignal {
 public:
  explicit StopAtSignal(Client* client)
      : thread_([client] {
          const sigset_t signals = endSignals();
          int signal_number = 0;
          while (sigwait(&signals, &signal_number) != 0) continue;
          client->stop();
        }) {}
  ~StopAtSignal() {
    // It has ended: the thread, which waits for this signal and has it blocked, goes.
    pthread_kill(thread_.native_handle(), SIGTERM);  // NOLINT(bugprone-bad-signal-to-kill-thread)
    thread_.join();
  }
  StopAtSignal(const StopAtSignal&) = delete;
  StopAtSignal& operator=(const StopAtSignal&) = delete;

 private:
  std::thread thread_;
};

jx::control::v1::CaptureRequest captureRequest(const Options& options) {
  jx::control::v1::CaptureRequest request;
  if (options.place.device) request.set_device(*options.place.device);
  request.set_port(options.port);
  request.set_count(options.count);
  if (options.direction == "in") request.set_direction(request.DIRECTION_IN);
  if (options.direction == "out") request.set_direction(request.DIRECTION_OUT);
  return request;
}

int runCapture(const Options& options, Client& client) {
  std::optional<CaptureOut> out;  // a capture that does not begin leaves a file as it was
  uint64_t lost = 0;
  const StopAtSignal stop(&client);
  client.capture(captureRequest(options), [&](const jx::control::v1::CapturedPackets& packets) {
    const bool begins = !out.has_value();
    if (begins) out.emplace(options.file);
    for (const auto& packet : packets.packets()) out->write(packet);
    out->flush();
    lost = packets.lost();
    if (!begins || options.json) return;
    print("capturing at port " + std::to_string(options.port) + '\n');
    finishOutput();
  });
  print(renderCaptured(out ? out->packets() : 0, lost, options.format()));
  return EXIT_SUCCESS;
}

int runWatch(const Options& options, Client& client) {
  jx::control::v1::WatchRequest request;
  if (options.place.device) request.set_device(*options.place.device);
  request.set_count(options.count);
  uint64_t events = 0;
  uint64_t lost = 0;
  bool begun = false;
  const StopAtSignal stop(&client);
  client.watch(request, [&](const jx::control::v1::WatchedEvents& watched) {
    if (!std::exchange(begun, true)) print(renderWatching(watched.device(), options.format()));
    for (const auto& event : watched.events()) print(renderEvent(event, options.format()));
    events += static_cast<uint64_t>(watched.events_size());
    const uint64_t more_lost = watched.lost() - std::exchange(lost, watched.lost());
    if (more_lost != 0) print(renderLost(more_lost, options.format()));
    finishOutput();
  });
  print(renderWatched(events, lost, options.format()));
  return EXIT_SUCCESS;
}

using Command = int (*)(const Options& options, Client& client);

bool lastsUntilStopped(Command command) { return command == runCapture || command == runWatch; }

CLI::App* addCommand(CLI::App* app, const char* name, const char* help, Command command,
                     Command* chosen) {
  CLI::App* const sub = app->add_subcommand(name, help);
  sub->fallthrough();  // options stand anywhere: before the command, after it, behind arguments
  sub->footer("Options of switchctl stand anywhere, see switchctl --help.");
  sub->callback([=] { *chosen = command; });
  return sub;
}

int run(int argc, char** argv) {
  Options options;
  Command command = nullptr;
  CLI::App app{
      "Looks into the devices of a slice agent, or of a partner in test mode, over gRPC;\n"
      "attaches ports to an agent's device, sets it up and follows packets through it; tells what "
      "happens on it; runs packet tests.",
      "switchctl"};
  app.set_version_flag("--version", "switchctl " JEX_VERSION);
  app.require_subcommand(0, 1);  // a missing one is reported below, after an unknown one
  app.add_option("--target", options.target, "Address of the control server, HOST:PORT")
      ->check(CLI::Validator(jexapps::checkHostPort, ""))
      ->capture_default_str();
  app.add_flag("--json", options.json, "Print JSON");
  const CLI::Validator is_name(checkName, "");
  app.add_option("--program", options.place.program, "Only this program")->check(is_name);
  app.add_option("--device", options.place.device, "Only this device")->check(CLI::Range(0, 255));

  addCommand(&app, "health", "Print SERVING if the server is well", runHealth, &command);
  addCommand(&app, "programs", "List the programs that the devices carry", runPrograms, &command);
  addCommand(&app, "tables", "List tables, their sizes and present entries", runTables, &command);
  addCommand(&app, "digests", "List digests, and whether a partner takes them", runDigests,
             &command);
  CLI::App* const entries =
      addCommand(&app, "entries", "Print all entries of a table, sorted", runEntries, &command);
  entries->add_option("TABLE", options.table, "Name of the table")->required()->check(is_name);
  entries->add_flag("--non-zero", options.non_zero, "Leave out counters that are 0");
  addCommand(&app, "count", "Print how many entries a table holds", runCount, &command)
      ->add_option("TABLE", options.table, "Name of the table")
      ->required()
      ->check(is_name);

  const auto addPortCommand = [&](const char* name, const char* help, Command run) {
    CLI::App* const sub = addCommand(&app, name, help, run, &command);
    sub->add_option("PORT", options.port, "Number of the port")
        ->required()
        ->check(CLI::Range(0, kLastPort));
  };
  const auto addPacketCommand = [&](const char* name, const char* help, Command run) {
    CLI::App* const sub = addCommand(&app, name, help, run, &command);
    sub->add_option("--port", options.port, "Number of the port")
        ->required()
        ->check(CLI::Range(0, kLastPort));
    sub->add_option("FILE", options.file, "Capture file")->required();
    return sub;
  };
  addCommand(&app, "ports", "List ports, their counters, and what became of packets", runPorts,
             &command);
  addCommand(&app, "port-add", "Attach a port", runPortAdd, &command)
      ->add_option("SPEC", options.port_spec, "N=if:NAME or N=pcap:IN[,OUT]")
      ->required();
  addPortCommand("port-delete", "Close and remove a port", runPortDelete);
  addPortCommand("port-up", "Set a port up", runPortUp);
  addPortCommand("port-down", "Set a port down: it drops what comes in and goes out", runPortDown);
  addPacketCommand("inject", "Let the packets of a capture come in at a port", runInject);
  CLI::App* const trace =
      addCommand(&app, "trace", "Tell the way of each packet of a capture, or of one, sending none",
                 runTrace, &command);
  trace->add_option("--port", options.port, "Number of the port")
      ->required()
      ->check(CLI::Range(0, kLastPort));
  trace
      ->add_option("FILE", options.words,
                   "Capture file, or the bytes of a packet as hexadecimal digits")
      ->type_name("FILE|HEX")
      ->required();
  CLI::App* const capture =
      addPacketCommand("capture", "Write what passes at a port to a capture", runCapture);
  capture->add_option("--count", options.count, "End after so many packets; 0: at SIGINT")
      ->capture_default_str();
  capture->add_option("--direction", options.direction, "Only packets that come in, or that go out")
      ->check(CLI::IsMember({"in", "out", "both"}))
      ->capture_default_str();
  addCommand(&app, "watch", "Print what is learned, what ages, and ports up and down", runWatch,
             &command)
      ->add_option("--count", options.count, "End after so many events; 0: at SIGINT")
      ->capture_default_str();
  addCommand(&app, "set", "Set up one thing: a command of packet tests, see the manual page",
             runSet, &command)
      ->add_option("COMMAND", options.words, "The command and what belongs to it")
      ->required();
  addCommand(&app, "configure", "Carry out the set-up commands of a file", runConfigure, &command)
      ->add_option("FILE", options.file, "Set-up file")
      ->required();
  const auto addCellsCommand = [&](const char* name, const char* help, Command run) {
    CLI::App* const sub = addCommand(&app, name, help, run, &command);
    sub->add_option("NAME", options.name, "Print its cells");
    sub->add_flag("--non-zero", options.non_zero, "Leave out cells that are 0 or not set");
  };
  addCellsCommand("registers", "List registers, or print one", runRegisters);
  addCellsCommand("meters", "List meters, or print the rates of one", runMeters);
  addCommand(&app, "value-sets", "List value sets and their members", runValueSets, &command);
  addCommand(&app, "multicast", "List multicast groups and nodes", runMulticast, &command);
  addCommand(&app, "clones", "List clone sessions", runClones, &command);
  addCommand(&app, "stf",
             "Run a packet test; with --program FILE on a device of its own with that program",
             runStf, &command)
      ->add_option("FILE", options.file, "Packet test")
      ->required();
  try {
    app.parse(argc, argv);
    if (command == nullptr) throw CLI::RequiredError("A command");
  } catch (const CLI::Success& wanted) {
    return app.exit(wanted);  // --help, --version
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "switchctl: %s (see switchctl --help)\n", error.what());
    return kExitUsage;
  }
  if (lastsUntilStopped(command)) {
    const sigset_t signals = endSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // before gRPC has threads
  }
  Client client(options.target);
  const int status = command(options, client);
  finishOutput();
  return status;
}

}  // namespace
}  // namespace switchctl

int main(int argc, char** argv) {
  try {
    return switchctl::run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "switchctl: %s\n", error.what());
    return switchctl::kExitFailure;
  }
}
