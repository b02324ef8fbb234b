// slice-counters: shows the counters in the shared segment, without taking part in anything: it
// needs neither a device nor the agent, and neither partner nor agent notices it.
#include <prometheus/exposer.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "options.h"
#include "output.h"
#include "source.h"

namespace slice_counters {
namespace {

constexpr int kExitFailure = 1;

using std::chrono::steady_clock;

/// How soon a segment that is waited for is noticed, at the latest.
constexpr std::chrono::milliseconds kNotice{200};

constexpr const char* kClearScreen = "\033[H\033[2J";

void expectTable(const std::vector<BlockSample>& samples, uint32_t table_id,
                 const TableNames& names) {
  for (const BlockSample& sample : samples) {
    if (sample.block.table_id == table_id) return;
  }
  const std::string* const name = names.find(table_id);
  throw std::runtime_error("no Partner has started counters of table " + std::to_string(table_id) +
                           (name != nullptr ? " (" + *name + ")" : ""));
}

/// Shows what there is now.
void showOnce(const Options& options, const std::vector<uint32_t>& wanted,
              const TableNames& names) {
  Segment segment;
  std::string why;
  if (!segment.attach(&why)) throw std::runtime_error(why);
  std::vector<BlockSample> samples;
  if (!readBlocks(segment, wanted, &samples)) throw std::runtime_error(kDamaged);
  for (const uint32_t table_id : wanted) expectTable(samples, table_id, names);
  const View view{options.format, options.selection, nowMs()};
  const bool with_counters = options.all || !wanted.empty();
  print(with_counters ? renderTables(samples, names, view) : renderList(samples, names, view));
}

/// Shows the tables at every interval, until a signal comes or the count is full.
void watch(const Options& options, const std::vector<uint32_t>& wanted, const TableNames& names) {
  const EndSignal end;
  const bool on_screen = options.format == Format::kText && isatty(STDOUT_FILENO) == 1;
  Source source(wanted);
  Histories histories;
  std::vector<BlockSample> samples;
  uint64_t looks = 0;
  for (steady_clock::time_point next = steady_clock::now();;) {
    bool anew = false;
    if (!source.read(&samples, &anew)) {
      next = steady_clock::now() + std::min(*options.watch, kNotice);
      if (end.waitUntil(next)) return;
      continue;
    }
    if (anew) histories.clear();
    histories.update(std::move(samples));
    std::string text =
        renderWatched(histories, names, {options.format, options.selection, nowMs()});
    if (options.format == Format::kText) {
      on_screen ? text.insert(0, kClearScreen) : text.append("\n");
    }
    if (!end.print(text) || ++looks == options.count) return;

    next += *options.watch;
    if (next < steady_clock::now()) next = steady_clock::now();  // looks that are late are left out
    if (end.waitUntil(next)) return;
  }
}

/// A connection keeps a thread of the web server from when it is accepted until its request is
/// answered, or until the time for a request is over: connections without a request must not take
/// all of them, or for long.
const char* const kServerThreads = "32";
const char* const kRequestMs = "5000";

std::unique_ptr<prometheus::Exposer> expose(const std::string& address) {
  const std::vector<std::string> options{
      "listening_ports",    address,    "num_threads",       kServerThreads,
      "request_timeout_ms", kRequestMs, "enable_keep_alive", "no"};
  try {
    return std::make_unique<prometheus::Exposer>(options);
  } catch (const std::exception&) {
    throw std::runtime_error("cannot serve on " + address +
                             ": the port is taken, or the address is not of this machine");
  }
}

/// Serves the tables until a signal comes.
void serve(const Options& options, const std::vector<uint32_t>& wanted, const TableNames& names) {
  const EndSignal end;
  const auto metrics = std::make_shared<Metrics>(wanted, names, options.max_series);
  metrics->Collect();  // says right away if there is something to wait for
  const std::unique_ptr<prometheus::Exposer> exposer = expose(options.address);
  exposer->RegisterCollectable(metrics);
  const std::string host = options.address.substr(0, options.address.rfind(':'));
  print("slice-counters: serving http://" + host + ':' +
        std::to_string(exposer->GetListeningPorts().at(0)) + "/metrics\n");
  end.wait();
}

int run(int argc, char** argv) {
  Options options;
  if (const std::optional<int> status = parse(argc, argv, &options)) return *status;
  try {
    TableNames names;
    for (const std::string& program : options.programs) names.add(program);
    std::vector<uint32_t> wanted;
    for (const std::string& table : options.tables) wanted.push_back(names.resolve(table));
    if (!options.address.empty()) {
      serve(options, wanted, names);
    } else if (options.watch) {
      watch(options, wanted, names);
    } else {
      showOnce(options, wanted, names);
    }
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "slice-counters: %s\n", error.what());
    return kExitFailure;
  }
}

}  // namespace
}  // namespace slice_counters

int main(int argc, char** argv) { return slice_counters::run(argc, argv); }
