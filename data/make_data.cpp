// make_data: makes the inputs of the demo, the tests and the benches; scripts/make_data.sh calls
// it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <set>
#include <stdexcept>
#include <string>

#include "captures.h"
#include "flows.h"
#include "output.h"
#include "routes.h"
#include "rules.h"

namespace jexdata {
namespace {

constexpr uint64_t kDefaultSeed = 1;
constexpr const char* kUsage =
    "usage: make_data [--out DIR] [--seed N] [routes|rules|flows|pcap]...\n"
    "\n"
    "Makes the inputs of the demo, the tests and the benches in DIR (default: build/data): those\n"
    "that are named, or all. The same seed (0 to 2^64 - 1, default: 1) makes the same bytes on\n"
    "every machine. data/README.md says what the files hold.\n";

struct Options {
  std::string out = "build/data";
  uint64_t seed = kDefaultSeed;
  std::set<std::string> kinds;
};

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

uint64_t seedOf(const std::string& text) {
  const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  try {
    if (digits) return std::stoull(text);
  } catch (const std::out_of_range&) {
  }
  throw UsageError("'" + text + "' is no seed: a seed is a number from 0 to 2^64 - 1");
}

Options parsed(int argc, char** argv) {
  const std::set<std::string> kinds{"routes", "rules", "flows", "pcap"};
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    const bool takes_value = word == "--out" || word == "--seed";
    if (takes_value && i + 1 == argc) throw UsageError(word + " needs a value");
    if (word == "--help") {
      std::fputs(kUsage, stdout);
      std::exit(EXIT_SUCCESS);
    } else if (word == "--out") {
      options.out = argv[++i];
    } else if (word == "--seed") {
      options.seed = seedOf(argv[++i]);
    } else if (kinds.count(word) != 0) {
      options.kinds.insert(word);
    } else {
      throw UsageError("'" + word + "' is neither an option nor a kind of data");
    }
  }
  if (options.kinds.empty()) options.kinds = kinds;
  return options;
}

void makeRules(const Options& options) {
  const auto make = [&](const std::string& name, RuleKind kind, size_t count) {
    writeFile(options.out, name, ruleSet(options.seed, name, kind, count));
  };
  make("rules/acl_1k.txt", RuleKind::kAccessList, 1000);
  make("rules/fw_1k.txt", RuleKind::kFirewall, 1000);
  make("rules/acl_10k.txt", RuleKind::kAccessList, 10'000);
}

void makeCaptures(const Options& options) {
  const std::vector<Capture> captures = allCaptures(options.seed);
  for (const Capture& capture : captures) {
    writeFile(options.out, "pcap/" + capture.file, capture.recording.file(capture.format));
  }
  writeFile(options.out, "pcap-facts/kinds.csv", kindTable(captures));
  writeFile(options.out, "pcap-facts/refused.csv", refusedTable(captures));
}

void make(const Options& options) {
  const auto wanted = [&](const char* kind) { return options.kinds.count(kind) != 0; };
  if (wanted("routes")) {
    writeFile(options.out, "routes/internet.txt", internetRoutes(options.seed));
  }
  if (wanted("rules")) makeRules(options);
  if (wanted("flows")) writeFile(options.out, "flows/flows.csv", flowTable(options.seed));
  if (wanted("pcap")) makeCaptures(options);
}

}  // namespace
}  // namespace jexdata

int main(int argc, char** argv) {
  try {
    jexdata::make(jexdata::parsed(argc, argv));
    return EXIT_SUCCESS;
  } catch (const jexdata::UsageError& error) {
    std::fprintf(stderr, "make_data: %s\n%s", error.what(), jexdata::kUsage);
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make_data: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
