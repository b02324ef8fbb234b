// The example l2_learning as a process, and what it has made of the agent's tables.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/switch_device.h"

namespace jextest {

/// Seconds, beyond every capture.
constexpr int kLongAge = 1'000'000;

class Learner {
 public:
  explicit Learner(int age_s, const std::string& program = programFile("l2_switch"))
      : process_(JEX_L2_LEARNING, {program, std::to_string(age_s)}) {
    EXPECT_EQ(process_.readLine(), "l2_learning: ready") << process_.standardError();
  }

  /// The next `count` lines that it prints.
  Words lines(size_t count) {
    Words lines;
    while (lines.size() < count) lines.push_back(process_.readLine());
    return lines;
  }
  /// Whether it prints these lines, in any order, among others.
  testing::AssertionResult says(std::set<std::string> wanted) {
    Words said;
    while (!wanted.empty()) {
      said.push_back(process_.readLine());
      if (said.back() == "<end>" || said.back() == "<silence>") {
        return testing::AssertionFailure()
               << testing::PrintToString(wanted) << " not among " << testing::PrintToString(said)
               << process_.standardError();
      }
      wanted.erase(said.back());
    }
    return testing::AssertionSuccess();
  }
  /// Ends it with a signal and returns what it has printed since it was read last.
  Words end(int signal_number) {
    process_.signal(signal_number);
    Words left;
    std::string line = process_.readLine();
    for (; line != "<end>" && line != "<silence>"; line = process_.readLine()) left.push_back(line);
    const Exit exit = process_.waitForExit();
    EXPECT_EQ(exit.signal, 0) << process_.standardError();
    EXPECT_EQ(exit.code, 0) << process_.standardError();
    EXPECT_EQ(process_.standardError(), kSetAside);
    return left;
  }

  Child& process() { return process_; }

 private:
  /// The library replicates no counter tables, and says so.
  static constexpr const char* kSetAside = "Ignoring Table type: 5\n";

  Child process_;
};

using PortsByAddress = std::map<std::string, std::string>;

/// Where the agent's `dmac` directs frames to.
inline PortsByAddress directions() {
  PortsByAddress ports;
  for (const std::string& line : switchctl({"entries", "dmac", "--json"}).output) {
    const auto entry = nlohmann::json::parse(line);
    if (entry.contains("key")) {
      ports[entry.at("key").at("ethernet.dst")] = entry.at("params").at("port");
    }
  }
  return ports;
}

/// The sources, and on which port, that the agent's `smac` knows.
inline PortsByAddress sources() {
  PortsByAddress ports;
  for (const std::string& line : switchctl({"entries", "smac", "--json"}).output) {
    const auto entry = nlohmann::json::parse(line);
    if (!entry.contains("key")) continue;
    const auto& key = entry.at("key");
    const std::string address = key.at("ethernet.src");
    EXPECT_EQ(ports.count(address), 0u) << address << " is known on two ports";
    ports[address] = key.at("meta.ingress_port");
  }
  return ports;
}

}  // namespace jextest
