#include "options.h"

#include <arpa/inet.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace slice_counters {
namespace {

constexpr int kExitUsage = 2;
constexpr double kMinIntervalMs = 10;
constexpr double kMaxIntervalMs = 24.0 * 60 * 60 * 1000;

const std::map<std::string, double> kUnitsMs{{"", 1000}, {"ms", 1}, {"s", 1000}, {"m", 60 * 1000}};

/// The order called `name`; without a name, busy entries first where there is something to watch.
Order orderOf(const std::string& name, bool watched) {
  if (name == "bytes") return Order::kBytes;
  if (name == "packets") return Order::kPackets;
  return name.empty() && watched ? Order::kPackets : Order::kIndex;
}

bool isPort(std::string_view text) {
  uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size();
}

std::string refuseInterval(const std::string& text) {
  if (parseInterval(text)) return "";
  return "'" + text + "' is no interval of 10 ms to a day, such as 500ms, 1s or 2m";
}

std::string refuseAddress(const std::string& text) {
  if (isAddress(text)) return "";
  return "'" + text + "' is no address and port, such as 127.0.0.1:9101 or [::1]:9101";
}

/// Options that need or exclude each other.
void checkTogether(const CLI::App& app, const Options& options) {
  const auto given = [&](const char* name) { return app.count(name) > 0; };
  const bool shows_counters = options.watch || options.all || !options.tables.empty();
  if (options.all && !options.tables.empty()) {
    throw CLI::ValidationError("--all", "excludes TABLE");
  }
  if (!options.watch && given("--count")) throw CLI::ValidationError("--count", "needs --watch");
  if (given("--prometheus")) {
    for (const char* const other : {"--watch", "--json", "--sort", "--top", "--zero"}) {
      if (given(other)) throw CLI::ValidationError(other, "excludes --prometheus");
    }
    return;
  }
  if (given("--max-series")) throw CLI::ValidationError("--max-series", "needs --prometheus");
  for (const char* const other : {"--sort", "--top", "--zero"}) {
    if (given(other) && !shows_counters) {
      throw CLI::ValidationError(other, "needs TABLE, --all or --watch");
    }
  }
}

}  // namespace

std::optional<std::chrono::milliseconds> parseInterval(const std::string& text) {
  if (text.empty() || text[0] < '0' || text[0] > '9') return std::nullopt;
  char* rest = nullptr;
  const double number = std::strtod(text.c_str(), &rest);
  const auto unit = kUnitsMs.find(rest);
  if (unit == kUnitsMs.end()) return std::nullopt;
  const double ms = std::round(number * unit->second);
  if (!(ms >= kMinIntervalMs && ms <= kMaxIntervalMs)) return std::nullopt;
  return std::chrono::milliseconds(static_cast<int64_t>(ms));
}

bool isAddress(const std::string& address) {
  const size_t colon = address.rfind(':');
  if (colon == std::string::npos || !isPort(std::string_view(address).substr(colon + 1))) {
    return false;
  }
  const std::string host = address.substr(0, colon);
  in_addr v4{};
  in6_addr v6{};
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    return inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &v6) == 1;
  }
  return inet_pton(AF_INET, host.c_str(), &v4) == 1;
}

std::optional<int> parse(int argc, char** argv, Options* options) {
  CLI::App app{
      "Shows the counters that partners have started and the slice agent has synced, out of the\n"
      "shared segment PARTNERLIB_SHM_COUNTERS. Without TABLE, --all, --watch and --prometheus it\n"
      "lists the tables.",
      "slice-counters"};
  app.set_version_flag("--version", "slice-counters " JEX_VERSION);
  std::string interval;
  std::string order;
  bool json = false;
  app.add_option("TABLE", options->tables, "Tables to show, by id, or by name with --program");
  app.add_flag("--all", options->all, "Show the counters of all tables");
  app.add_option("--program", options->programs,
                 "Programs that have the tables' names: descriptions, the compiler's JSON (or "
                 "JSON,P4INFO), or P4Info")
      ->allow_extra_args(false);
  app.add_option("--watch", interval,
                 "Show the tables (all without TABLE) again and again, with rates; 500ms, 1s, 2m")
      ->check(CLI::Validator(refuseInterval, "INTERVAL"));
  app.add_option("--count", options->count, "End after so many looks; 0: at SIGINT")
      ->capture_default_str();
  app.add_option("--sort", order,
                 "Order of entries: index, packets or bytes, most first; with --watch by rate. "
                 "Left out: index, with --watch packets")
      ->check(CLI::IsMember({"index", "packets", "bytes"}));
  app.add_option("--top", options->selection.top, "At most so many entries of a table; 0: all")
      ->capture_default_str();
  app.add_flag("--zero", options->selection.zero, "Also entries that have counted nothing");
  app.add_flag("--json", json, "Print JSON");
  app.add_option("--prometheus", options->address,
                 "Serve the tables (all without TABLE) to Prometheus, ADDR:PORT")
      ->check(CLI::Validator(refuseAddress, "ADDR:PORT"));
  app.add_option("--max-series", options->max_series,
                 "Series of packets and bytes to serve at most, two an entry")
      ->capture_default_str();
  try {
    app.parse(argc, argv);
    if (!interval.empty()) options->watch = parseInterval(interval);
    checkTogether(app, *options);
  } catch (const CLI::Success& wanted) {
    return app.exit(wanted);  // --help, --version
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "slice-counters: %s (see slice-counters --help)\n", error.what());
    return kExitUsage;
  }
  if (json) options->format = Format::kJson;
  options->selection.order = orderOf(order, options->watch.has_value());
  return std::nullopt;
}

}  // namespace slice_counters
