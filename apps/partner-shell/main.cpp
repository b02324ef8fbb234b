// partner-shell: a partner application that a person or a script drives line by line.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>
#include <memory>

#include "JexHybridSlice/JexPartnerLib.h"
#include "agent_socket.h"
#include "input.h"
#include "partner_library.h"
#include "program_check.h"
#include "progress.h"
#include "request.h"
#include "shell.h"

namespace jexapps {
namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

struct Options {
  std::vector<std::string> program_files;
  jx_dev_id_t device = 1;
  uint32_t handle_base = 0;
  bool json = false;
  bool stop_on_error = false;
  std::string script;
  std::string control = "127.0.0.1:50051";
};

constexpr char kFooter[] =
    "Commands come from standard input, or from a script; `help` lists them. Each is answered by\n"
    "one line, `ok ...` or `error: ...` (or a JSON object), after the lines that it lists.\n"
    "`partner-shell: ready` is printed once an agent has been found: on standard output, or with\n"
    "--json on standard error.\n"
    "\n"
    "End of input, `quit`, `exit` and SIGTERM end the shell, and so does SIGINT in a script or a\n"
    "pipe. On a terminal Ctrl-C drops the line that is being typed, or interrupts the command "
    "that\n"
    "runs.\n"
    "The status is 1 if a command of a script or of piped input failed, else 0. A command that "
    "the\n"
    "end of the shell interrupts has not failed.";

// The process's status if it is to end at once, else nothing.
std::optional<int> parseOptions(int argc, char** argv, Options* options) {
  CLI::App app("Programs tables of a slice of a switch, line by line.", "partner-shell");
  app.footer(kFooter);
  app.set_version_flag("--version", "partner-shell " JEX_VERSION);
  app.add_option("--program", options->program_files,
                 "P4 program: a description, the compiler's JSON (with its P4Info beside it, or as "
                 "JSON,P4INFO), or P4Info alone; may be repeated")
      ->required()
      ->allow_extra_args(false)
      ->type_name("FILE");
  app.add_option("--device", options->device, "number of the virtual device")
      ->check(CLI::Range(0, 255))
      ->type_name("N")
      ->capture_default_str();
  app.add_option("--handle-base", options->handle_base,
                 "first entry handle; partners that share a table need ranges of their own")
      ->type_name("N");
  app.add_flag("--json", options->json, "one JSON object per line instead of text");
  app.add_option("--script", options->script, "read commands from a file")->type_name("FILE");
  app.add_flag("--stop-on-error", options->stop_on_error,
               "end at the first command of a script or of piped input that fails");
  app.add_option("--control", options->control,
                 "address of the slice agent's control server, HOST:PORT, which is asked before a "
                 "digest is taken; off: nobody is asked")
      ->type_name("ADDRESS")
      ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& wanted) {
    return app.exit(wanted);  // --help, --version
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "partner-shell: %s (see partner-shell --help)\n", error.what());
    return kExitUsage;
  }
  return std::nullopt;
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

int failErrno(const std::string& subject) {
  std::fprintf(stderr, "partner-shell: %s: %s\n", subject.c_str(), std::strerror(errno));
  return kExitFailure;
}

void showProgress(Progress& progress, uint64_t line_number, uint64_t bytes, uint64_t size) {
  if (!progress.due() || size == 0) return;
  progress.show("line " + std::to_string(line_number) + ", " + std::to_string(bytes * 100 / size) +
                " %");
}

// Runs the lines of a script, or else of standard input. True if no command failed and all lines
// could be read.
bool runFile(const Options& options, int script_fd, const StopSignal& stop, Shell& shell,
             const Output& output) {
  const bool is_script = script_fd >= 0;
  const int fd = is_script ? script_fd : STDIN_FILENO;
  struct stat facts {};
  const uint64_t size =
      is_script && fstat(fd, &facts) == 0 ? static_cast<uint64_t>(facts.st_size) : 0;
  FileLines lines(fd, stop);
  Progress progress(isatty(STDOUT_FILENO) != 1);  // there, the results show how far it is
  std::string line;
  uint64_t line_number = 0;
  bool succeeded = true;
  LineSource::Read read = LineSource::Read::kEnd;
  while (output.good() && (read = lines.next(&line)) == LineSource::Read::kLine) {
    ++line_number;
    const Shell::Outcome outcome =
        shell.run(line, is_script ? std::make_optional(line_number) : std::nullopt);
    if (outcome == Shell::Outcome::kQuit) break;
    // A command that a signal to end the shell has interrupted did not fail.
    if (outcome == Shell::Outcome::kError && !stop.endRequested()) {
      succeeded = false;
      if (options.stop_on_error) break;
    }
    showProgress(progress, line_number, lines.bytesRead(), size);
  }
  if (read != LineSource::Read::kFailed) return succeeded;
  std::fprintf(stderr, "partner-shell: %s: %s\n",
               is_script ? options.script.c_str() : "standard input", lines.failure().c_str());
  return false;
}

// Runs the lines of a person, who sees what fails.
void runTerminal(const Options& options, StopSignal& stop, Shell& shell, const Output& output) {
  // Standard output is for results alone if they are JSON, or a program reads them.
  FILE* const screen = options.json || isatty(STDOUT_FILENO) != 1 ? stderr : stdout;
  stop.separateInterrupts();
  TerminalLines lines(stop, screen, [&](std::string_view text) { return shell.completions(text); });
  std::string line;
  while (output.good() && lines.next(&line) == LineSource::Read::kLine) {
    if (shell.run(line) == Shell::Outcome::kQuit) return;
  }
}

// True if the process is to end with status 0.
bool runInput(const Options& options, int script_fd, StopSignal& stop, Shell& shell,
              const Output& output) {
  if (script_fd >= 0 || isatty(STDIN_FILENO) != 1) {
    return runFile(options, script_fd, stop, shell, output);
  }
  runTerminal(options, stop, shell, output);
  return true;
}

// Columns of the terminal that standard output is, 0 if it is none.
size_t columnsOfOutput() {
  constexpr size_t kUsual = 80;
  if (isatty(STDOUT_FILENO) != 1) return 0;
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsual;
  return size.ws_col;
}

jx_status_t readFacts(jx_dev_id_t device, DeviceFacts* facts) {
  const jx_status_t status = readTableFacts(device, &facts->tables);
  return status == JX_SUCCESS ? readDigestFacts(device, &facts->digests) : status;
}

// The library names the tables that it leaves alone by a number, a line each.
void explainIgnoredTables(const std::vector<TableFacts>& tables) {
  std::vector<TableFacts> ignored;
  const auto is_counter = [](const TableFacts& t) { return t.type == JX_RT_TABLE_COUNTER; };
  std::copy_if(tables.begin(), tables.end(), std::back_inserter(ignored), is_counter);
  if (ignored.empty()) return;
  std::fprintf(stderr,
               "partner-shell: \"Ignoring Table type: %d\" is said of counter tables (%s): nothing "
               "is written to them, counters-start starts them\n",
               JX_RT_TABLE_COUNTER, namesOf(ignored).c_str());
}

void announceReady(bool json) {
  (json ? std::cerr : std::cout) << "partner-shell: ready" << std::endl;
}

// Brings the library up, runs the commands, takes it down. The library stops the process where it
// cannot start.
int runPartner(const Options& options, int script_fd, StopSignal& stop) {
  const std::shared_ptr<jxrt::JxRtSession> session = jxrt::JxRtSession::sessionCreate();
  if (!session) {
    std::fprintf(stderr, "partner-shell: no session to be had\n");
    return kExitFailure;
  }
  std::vector<const char*> paths;
  for (const std::string& path : options.program_files) paths.push_back(path.c_str());
  jx_device_profile_t profile{};
  profile.num_programs = static_cast<uint32_t>(paths.size());
  profile.program_files = paths.data();
  profile.handle_base = options.handle_base;
  const jx_rt_target_t target{options.device, JX_PIPE_ALL, 0, 0};
  {
    const EndWhileStarting watch(stop, whyNoAgentAnswers);
    if (!PartnerLibStartup(*session, target, JX_DEV_TYPE_MODEL, &profile)) return kExitFailure;
  }

  bool succeeded = false;
  {
    DeviceFacts facts;
    const jx_status_t status = readFacts(options.device, &facts);
    PartnerLibrary library(*session, target, options.control == "off" ? "" : options.control);
    Output output(std::cout, options.json, columnsOfOutput());
    Shell shell(*session, target, std::move(facts), library, output,
                [&] { return stop.requested(); });
    if (status != JX_SUCCESS) {
      std::fprintf(stderr, "partner-shell: the device's programs: %s\n",
                   statusText(status).c_str());
    } else {
      explainIgnoredTables(shell.tables());
      announceReady(options.json);
      succeeded = runInput(options, script_fd, stop, shell, output) && output.good();
      for (const std::string& remark : shell.finish()) {
        std::fprintf(stderr, "partner-shell: %s\n", remark.c_str());
      }
    }
  }
  PartnerLibShutdown(options.device);
  return succeeded ? 0 : kExitFailure;
}

int run(int argc, char** argv) {
  Options options;
  if (const std::optional<int> status = parseOptions(argc, argv, &options)) return *status;
  std::ios::sync_with_stdio(false);
  std::signal(SIGPIPE, SIG_IGN);  // a reader that goes away is the end of input, not of the process
  const Descriptor script(
      options.script.empty() ? -1 : open(options.script.c_str(), O_RDONLY | O_CLOEXEC));
  if (!options.script.empty() && script.get() < 0) return failErrno(options.script);
  if (const std::optional<std::string> reason = whyNoPartnerCanStart()) {
    std::fprintf(stderr, "partner-shell: %s\n", reason->c_str());
    return kExitFailure;
  }
  if (!programsAreLoadable(options.program_files)) return kExitFailure;
  StopSignal stop;
  return runPartner(options, script.get(), stop);
}

}  // namespace
}  // namespace jexapps

int main(int argc, char** argv) {
  try {
    return jexapps::run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "partner-shell: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
