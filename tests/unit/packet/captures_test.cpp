// What real traffic consists of, as another dissector counts it.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "capture.h"
#include "model/packet/headers.h"

namespace jxmodel {
namespace {

using Counts = std::map<std::string, int>;

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

struct Capture {
  const char* file;
  Counts kinds;
};

// Counted with tshark by the outermost headers.
const Capture kCaptures[] = {
    {"backscatter.pcap", {{"ipv4 tcp", 4741}, {"ipv4 icmp", 28}, {"ipv4 udp", 2}}},
    {"lan-1kxun.pcapng", {{"ipv4 tcp", 1097}, {"ipv4 udp", 278}, {"ipv6 udp", 64}}},
    {"p2p-gnutella.pcap",
     {{"ipv4 tcp", 2149},
      {"ipv4 udp", 1645},
      {"ipv6 udp", 47},
      {"arp", 22},
      {"ipv6 icmpv6", 21},
      {"ipv4", 12},
      {"ipv4 icmp", 8},
      {"frame was cut by the capture", 1}}},
    {"plant-modbus-mb2.pcap",
     {{"ipv4 tcp", 13393}, {"arp", 25}, {"ipv4 udp", 24}, {"ipv4 icmp", 8}, {"other", 22}}},
    {"s4x15-bacnet-host.pcap", {{"ipv4 udp", 21255}, {"ipv4 icmp", 30}}},
    {"tcpreplay-test.pcap",
     {{"ipv4 tcp", 106},
      {"ipv4 udp", 28},
      {"ipv4 icmp", 12},
      {"ipv6 tcp", 10},
      {"ipv4", 4},
      {"arp", 1},
      {"other", 18}}},
    {"web-tls-v4v6.pcap", {{"ipv6 tcp", 4440}, {"ipv4 tcp", 3011}}},
};

TEST(Captures, HaveTheHeadersThatAreFound) {
  for (const Capture& capture : kCaptures) {
    SCOPED_TRACE(capture.file);
    Counts kinds;
    const auto error =
        forEachPacket(std::string(JEX_CAPTURES_DIR "/") + capture.file,
                      [&](const std::vector<uint8_t>& frame, size_t wire_size) {
                        Headers headers;
                        const auto status = parse(frame.data(), frame.size(), wire_size, &headers);
                        ++kinds[status == ParseStatus::kOk ? kindOf(headers) : reasonOf(status)];
                      });
    EXPECT_EQ(error, "");
    EXPECT_EQ(kinds, capture.kinds);
  }
}

}  // namespace
}  // namespace jxmodel
