#include "stf_judge.h"

#include <algorithm>
#include <map>

namespace stf {
namespace {

struct Expected {
  const Expect* what;
  uint32_t line;
};

struct AtPort {
  std::vector<Expected> expected;
  std::vector<const Left*> left;
};

std::string plural(size_t count, const std::string& thing) {
  return std::to_string(count) + ' ' + thing + (count == 1 ? "" : "s");
}

/// How a packet differs from what is expected; empty if it does not.
std::string mismatch(const Expect& expect, const std::string& got) {
  const std::string& wanted = *expect.digits;
  for (size_t i = 0; i < std::min(wanted.size(), got.size()); ++i) {
    if (wanted[i] == '*' || wanted[i] == got[i]) continue;
    return "digit " + std::to_string(i + 1) + " is " + got[i] + ", not " + wanted[i];
  }
  if (got.size() < wanted.size()) {
    return "it ends before digit " + std::to_string(got.size() + 1);
  }
  if (expect.whole && got.size() > wanted.size()) {
    return plural(got.size() - wanted.size(), "digit") + " too many, from digit " +
           std::to_string(wanted.size() + 1) + " on";
  }
  return {};
}

std::string written(const Expect& expect) { return *expect.digits + (expect.whole ? "$" : ""); }

void judgeAny(const std::string& where, const AtPort& port, std::vector<Difference>* out) {
  if (port.left.empty()) {
    out->push_back({port.expected.front().line, where + "expected a packet, got none"});
  }
}

std::string differs(const Expect& expected, const std::string& got, const std::string& reason) {
  return "expected " + written(expected) + ", got " + got + ": " + reason;
}

void judgePackets(const std::string& where, const AtPort& port, std::vector<Difference>* out) {
  const size_t pairs = std::min(port.expected.size(), port.left.size());
  for (size_t i = 0; i < pairs; ++i) {
    const Expected& expected = port.expected[i];
    const std::string& got = port.left[i]->digits;
    const std::string reason = mismatch(*expected.what, got);
    if (reason.empty()) continue;
    out->push_back({expected.line, where + differs(*expected.what, got, reason)});
  }
  for (size_t i = pairs; i < port.expected.size(); ++i) {
    const Expected& expected = port.expected[i];
    out->push_back(
        {expected.line, where + "expected " + written(*expected.what) + ", got no packet"});
  }
  for (size_t i = pairs; i < port.left.size(); ++i) {
    out->push_back({port.left[i]->line, where + "expected no packet, got " + port.left[i]->digits});
  }
}

}  // namespace

std::vector<Difference> judge(const std::vector<Line>& lines, const std::vector<Left>& left) {
  std::map<uint32_t, AtPort> ports;
  for (const Line& line : lines) {
    if (const auto* const expect = std::get_if<Expect>(&line.command)) {
      ports[expect->port].expected.push_back({expect, line.number});
    }
  }
  for (const Left& packet : left) ports[packet.port].left.push_back(&packet);
  std::vector<Difference> differences;
  for (const auto& [number, port] : ports) {
    const std::string where = "port " + std::to_string(number) + ": ";
    const bool any = !port.expected.empty() && !port.expected.front().what->digits.has_value();
    if (any) {
      judgeAny(where, port, &differences);
    } else {
      judgePackets(where, port, &differences);
    }
  }
  std::stable_sort(differences.begin(), differences.end(),
                   [](const Difference& a, const Difference& b) { return a.line < b.line; });
  return differences;
}

}  // namespace stf
