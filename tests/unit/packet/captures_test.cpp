// What the packets of captures consist of, as those know who made them and as another dissector
// tells.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "capture.h"
#include "model/packet/headers.h"
#include "support/test_data.h"

namespace jxmodel {
namespace {

using Counts = std::map<std::string, size_t>;

std::string kindOf(const Headers& headers) {
  if (headers.has(Header::kArp)) return "arp";
  std::string kind;
  if (headers.has(Header::kIpv4)) kind = "ipv4";
  if (headers.has(Header::kIpv6)) kind = "ipv6";
  if (kind.empty()) return "other";
  for (const Header l4 : {Header::kTcp, Header::kUdp, Header::kIcmp, Header::kIcmpv6}) {
    if (headers.has(l4)) return kind + " " + nameOf(l4);
  }
  return kind;
}

struct Found {
  std::string kind;  // or why the packet is refused
  ParseStatus status;
};

std::vector<Found> parsedPackets(const std::string& file) {
  std::vector<Found> found;
  const auto error = forEachPacket(file, [&](const std::vector<uint8_t>& frame, size_t wire_size) {
    Headers headers;
    const auto status = parse(frame.data(), frame.size(), wire_size, &headers);
    found.push_back({status == ParseStatus::kOk ? kindOf(headers) : reasonOf(status), status});
  });
  EXPECT_EQ(error, "");
  return found;
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

// ---- the captures that the build makes

class MadeCaptures : public testing::TestWithParam<std::string> {};

/// The rows of a table beside the captures that are about this one, without its name.
std::vector<std::vector<std::string>> factsOf(const std::string& capture, const char* table) {
  std::ifstream file(jextest::madeFile(std::string("pcap-facts/") + table));
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(file, line);) {
    std::vector<std::string> row = split(line, ',');
    if (row.size() != 3 || row[0] != capture) continue;
    rows.push_back({row[1], row[2]});
  }
  return rows;
}

TEST_P(MadeCaptures, HaveTheHeadersThatTheyWereMadeWith) {
  Counts kinds, expected;
  for (const Found& found : parsedPackets(jextest::madeFile("pcap/" + GetParam()))) {
    ++kinds[found.kind];
  }
  for (const auto& row : factsOf(GetParam(), "kinds.csv")) expected[row[0]] = std::stoul(row[1]);
  EXPECT_FALSE(expected.empty());
  EXPECT_EQ(kinds, expected);
}

TEST_P(MadeCaptures, HaveTheFaultsThatTheyWereMadeWith) {
  std::map<size_t, std::string> refused, expected;
  size_t number = 0;
  for (const Found& found : parsedPackets(jextest::madeFile("pcap/" + GetParam()))) {
    ++number;
    const bool cut = found.status == ParseStatus::kCutByCapture;
    if (found.status != ParseStatus::kOk && !cut) refused[number] = found.kind;
  }
  for (const auto& row : factsOf(GetParam(), "refused.csv")) expected[std::stoul(row[0])] = row[1];
  EXPECT_EQ(refused, expected);
}

std::vector<std::string> madeCaptures() {
  std::vector<std::string> names = jextest::madeAndReal("pcap");
  names.pop_back();  // that of real ones
  return names;
}

INSTANTIATE_TEST_SUITE_P(Captures, MadeCaptures, testing::ValuesIn(madeCaptures()),
                         jextest::inWords);

// Between them the captures have every fault that the parser knows.
TEST(MadeCapturesTogether, HaveEachFault) {
  std::map<ParseStatus, size_t> faults;
  for (const std::string& capture : madeCaptures()) {
    for (const Found& found : parsedPackets(jextest::madeFile("pcap/" + capture))) {
      ++faults[found.status];
    }
  }
  for (size_t status = 0; status < kParseStatusCount; ++status) {
    const auto wanted = static_cast<ParseStatus>(status);
    EXPECT_GT(faults[wanted], 0U) << reasonOf(wanted);
  }
}

// ---- another dissector, on all captures

class Captures : public jextest::OverFiles {
 protected:
  Captures() : OverFiles("pcap", "pcap") {}
};

/// What stands in front of a packet's network header, and what stands between that and the next.
bool isTag(const std::string& layer) {
  return layer == "eth" || layer == "ethertype" || layer == "vlan" || layer == "ieee8021ad";
}

bool isExtension(const std::string& layer) {
  return layer.compare(0, 5, "ipv6.") == 0 || layer == "ah";
}

/// The kind of a packet by tshark's list of its layers.
std::string kindOf(const std::string& protocols, const std::string& arp_protocol) {
  const std::vector<std::string> layers = split(protocols, ':');
  size_t at = 0;
  while (at < layers.size() && isTag(layers[at])) ++at;
  if (at == layers.size()) return "other";
  if (layers[at] == "arp") return arp_protocol == "0x0800" ? "arp" : "other";
  if (layers[at] != "ip" && layers[at] != "ipv6") return "other";
  const std::string ip = layers[at] == "ip" ? "ipv4" : "ipv6";
  do ++at;
  while (at < layers.size() && isExtension(layers[at]));
  if (at == layers.size()) return ip;
  const std::string& next = layers[at];
  const char* const control = ip == "ipv4" ? "icmp" : "icmpv6";
  return next == "tcp" || next == "udp" || next == control ? ip + " " + next : ip;
}

/// Each packet's kind by tshark; empty if that does not run.
std::vector<std::string> dissectedPackets(const std::string& file) {
  const std::string command =
      "tshark -n -o ip.defragment:FALSE -o ipv6.defragment:FALSE -T fields -E separator='|' "
      "-e frame.protocols -e arp.proto.type -r '" +
      file + "' 2>/dev/null";
  std::vector<std::string> kinds;
  FILE* const output = popen(command.c_str(), "r");
  if (output == nullptr) return kinds;
  std::array<char, 1024> line{};
  while (std::fgets(line.data(), line.size(), output) != nullptr) {
    std::string text = line.data();
    while (!text.empty() && text.back() == '\n') text.pop_back();
    const size_t bar = text.find('|');
    kinds.push_back(kindOf(text.substr(0, bar), text.substr(bar + 1)));
  }
  pclose(output);
  return kinds;
}

TEST_P(Captures, HaveTheHeadersThatAnotherDissectorFinds) {
  const bool made = GetParam() != jextest::kReal;
  forEachFile([made](const std::string& file) {
    const std::vector<Found> parsed = parsedPackets(file);
    const std::vector<std::string> dissected = dissectedPackets(file);
    ASSERT_EQ(parsed.size(), dissected.size());
    int differences = 0;
    for (size_t i = 0; i < parsed.size() && differences < 5; ++i) {
      if (parsed[i].status != ParseStatus::kOk) {
        // Who makes captures makes wrong packets, too; a real one is only ever cut.
        EXPECT_TRUE(made || parsed[i].status == ParseStatus::kCutByCapture)
            << "packet " << i + 1 << ": " << parsed[i].kind;
        continue;
      }
      EXPECT_EQ(parsed[i].kind, dissected[i]) << "packet " << i + 1;
      differences += parsed[i].kind == dissected[i] ? 0 : 1;
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Captures, Captures, testing::ValuesIn(jextest::madeAndReal("pcap")),
                         jextest::inWords);

}  // namespace
}  // namespace jxmodel
