#include "support/processes.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include "JexHybridSlice/JexPartnerLib.h"
#include "support/helper.h"
#include "support/private_world.h"
#include "support/random_mix.h"
#include "support/stop.h"
#include "support/wait_until.h"
#include "support/write_command.h"

namespace jextest {
namespace {

std::string joined(const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : ",") + part;
  return text;
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, ',');) parts.push_back(part);
  return parts;
}

void writeDump(const DeviceView& device, const std::string& file) {
  std::ofstream out(file);
  for (const std::string& line : device.dump()) out << line << '\n';
}

void answer(const std::string& line) { std::cout << line << std::endl; }

class PartnerProcess {
 public:
  explicit PartnerProcess(const Arguments& arguments)
      : profile_(split(arguments.at(4)), static_cast<uint32_t>(std::stoul(arguments.at(1)))),
        view_(std::stoi(arguments.at(0))),
        owner_(static_cast<uint32_t>(std::stoul(arguments.at(2)))),
        shared_(arguments.at(3) == "shared"),
        writer_(view_, owner_) {}

  void serve() {
    for (std::string line; std::getline(std::cin, line);) run(line);
  }

 private:
  void run(const std::string& line) {
    const auto words = wordsOf(line);
    jx_status_t status = JX_SUCCESS;
    if (line == "start") {
      const bool started =
          PartnerLibStartup(view_.session(), view_.target(), JX_DEV_TYPE_MODEL, profile_.get());
      answer(started ? "true" : "false");
    } else if (line == "shutdown") {
      PartnerLibShutdown(view_.id());
      answer("done");
    } else if (words.at(0) == "mix") {
      RandomMix(view_, owner_, shared_, std::stoull(words.at(1))).run(std::stoull(words.at(2)));
      answer("done");
    } else if (words.at(0) == "dump") {
      writeDump(view_, words.at(1));
      answer("done");
    } else if (runWrite(writer_, line, &status)) {
      answer("status " + std::to_string(status));
    } else {
      answer("no such command");
    }
  }

  Profile profile_;
  DeviceView view_;
  uint32_t owner_;
  bool shared_;
  TableWriter writer_;
};

/// The agent's commands, on a thread of their own beside the loop.
void answerCommands(const DeviceView& device) {
  for (std::string line; std::getline(std::cin, line);) {
    const auto words = wordsOf(line);
    if (line == "heartbeat") {
      answer(PartnerLib::PeriodicHeartbeatUpdate() ? "true" : "false");
    } else if (words.at(0) == "dump") {
      writeDump(device, words.at(1));
      answer("done");
    } else {
      answer("no such command");
    }
  }
  _exit(0);
}

void failWithDifferences(const std::vector<std::string>& expected,
                         const std::vector<std::string>& found) {
  constexpr size_t kShown = 5;
  const auto report = [](const char* what, const std::vector<std::string>& lines) {
    for (size_t i = 0; i < lines.size() && i < kShown; ++i) {
      ADD_FAILURE() << what << lines[i];
    }
  };
  std::vector<std::string> missing;
  std::vector<std::string> extra;
  std::set_difference(expected.begin(), expected.end(), found.begin(), found.end(),
                      std::back_inserter(missing));
  std::set_difference(found.begin(), found.end(), expected.begin(), expected.end(),
                      std::back_inserter(extra));
  ADD_FAILURE() << expected.size() << " entries expected, " << found.size() << " found; "
                << missing.size() << " missing, " << extra.size() << " not expected";
  report("missing: ", missing);
  report("not expected: ", extra);
}

}  // namespace

JEX_HELPER(partner) {
  PartnerProcess(arguments).serve();
  _exit(0);
}

JEX_HELPER(agent) {
  const SwitchDevice device(DeviceKind::kPhysical, std::stoi(arguments.at(0)),
                            split(arguments.at(1)));
  std::thread(answerCommands, std::cref(device.view())).detach();
  PartnerLibServerStartup(device.view().session().cHandle(),
                          static_cast<uint8_t>(device.view().id()), 20);
  return 1;
}

Child startPartner(const PartnerOptions& options, const Child::Environment& environment) {
  return Child::helper("partner",
                       {std::to_string(options.device), std::to_string(options.handle_base),
                        std::to_string(options.owner), options.shared ? "shared" : "alone",
                        joined(options.programs)},
                       environment);
}

Child startedPartner(const PartnerOptions& options, const Child::Environment& environment) {
  Child partner = startPartner(options, environment);
  EXPECT_EQ(partner.ask("start"), "true") << partner.standardError();
  return partner;
}

Child startAgent(const AgentOptions& options, const Child::Environment& environment) {
  return Child::helper("agent", {std::to_string(options.device), joined(options.programs)},
                       environment);
}

std::vector<std::string> dumpOf(Child& process) {
  static int count = 0;
  const std::string file = runDirectory() + "/dump-" + std::to_string(++count);
  EXPECT_EQ(process.ask("dump " + file), "done") << process.standardError();
  std::ifstream in(file);
  std::ostringstream text;
  text << in.rdbuf();
  return linesOf(text.str());
}

void expectDump(Child& process, const std::vector<std::string>& lines) {
  std::vector<std::string> found;
  const bool same = waitUntil([&] {
    found = dumpOf(process);
    return found == lines || testing::Test::HasFailure();
  });
  if (!same || found != lines) failWithDifferences(lines, found);
}

}  // namespace jextest
