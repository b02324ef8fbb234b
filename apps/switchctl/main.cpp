// switchctl: looks into the devices of a slice agent, or of a partner in test mode, over gRPC.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>

#include "client.h"
#include "entry.h"
#include "render.h"

namespace switchctl {
namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

struct Options {
  std::string target = "127.0.0.1:50051";
  bool json = false;
  Place place;
  std::string table;

  Format format() const { return json ? Format::kJson : Format::kText; }
};

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

int runCount(const Options& options, Client& client) {
  print(renderCount(options.table, client.count(options.table, options.place), options.format()));
  return EXIT_SUCCESS;
}

int runEntries(const Options& options, Client& client) {
  // Counted first for the progress, and because a count is given up when nobody answers.
  Progress progress(client.count(options.table, options.place));
  jexapps::Dump dump(options.json ? jexapps::DumpFormat::kJson : jexapps::DumpFormat::kText);
  jexapps::EntryView view;
  client.entries(options.table, options.place, [&](const jx::control::v1::EntryChunk& chunk) {
    for (const jx::control::v1::Entry& entry : chunk.entries()) {
      toView(entry, &view);
      dump.add(view);
    }
    progress.update(dump.entries());
  });
  progress.clear();
  dump.write(print);
  return EXIT_SUCCESS;
}

using Command = int (*)(const Options& options, Client& client);

CLI::App* addCommand(CLI::App* app, const char* name, const char* help, Command command,
                     Command* chosen) {
  CLI::App* const sub = app->add_subcommand(name, help);
  sub->fallthrough();  // options stand before or after the command
  sub->footer("Options of switchctl stand before or after the command, see switchctl --help.");
  sub->callback([=] { *chosen = command; });
  return sub;
}

int run(int argc, char** argv) {
  Options options;
  Command command = nullptr;
  CLI::App app{"Looks into the devices of a slice agent, or of a partner in test mode, over gRPC.",
               "switchctl"};
  app.set_version_flag("--version", "switchctl " JEX_VERSION);
  app.require_subcommand(0, 1);  // a missing one is reported below, after an unknown one
  app.add_option("--target", options.target, "Address of the control server, HOST:PORT")
      ->capture_default_str();
  app.add_flag("--json", options.json, "Print JSON");
  app.add_option("--program", options.place.program, "Only this program");
  app.add_option("--device", options.place.device, "Only this device")->check(CLI::Range(0, 255));

  addCommand(&app, "health", "Print SERVING if the server is well", runHealth, &command);
  addCommand(&app, "programs", "List the programs that the devices carry", runPrograms, &command);
  addCommand(&app, "tables", "List tables, their sizes and present entries", runTables, &command);
  addCommand(&app, "entries", "Print all entries of a table, sorted", runEntries, &command)
      ->add_option("TABLE", options.table, "Name of the table")
      ->required();
  addCommand(&app, "count", "Print how many entries a table holds", runCount, &command)
      ->add_option("TABLE", options.table, "Name of the table")
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
  try {
    Client client(options.target);
    const int status = command(options, client);
    finishOutput();
    return status;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "switchctl: %s\n", error.what());
    return kExitFailure;
  }
}

}  // namespace
}  // namespace switchctl

int main(int argc, char** argv) { return switchctl::run(argc, argv); }
