#include "model/packet/headers.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "frames.h"

namespace jxmodel {
namespace {

using namespace frames;  // NOLINT: the vocabulary of these tests

struct Parsed {
  ParseStatus status;
  Headers headers;
};

// From a copy of just that size, so that a sanitizer sees each byte read behind it.
Parsed parsed(const Bytes& frame) {
  const std::unique_ptr<uint8_t[]> exact(new uint8_t[frame.size()]);
  std::copy(frame.begin(), frame.end(), exact.get());
  Parsed result{};
  result.status = parse(exact.get(), frame.size(), &result.headers);
  return result;
}

std::set<std::string> namesIn(const Headers& headers) {
  std::set<std::string> names;
  for (size_t i = 0; i < kHeaderCount; ++i) {
    const auto header = static_cast<Header>(i);
    if (header != Header::kMeta && headers.has(header)) names.insert(nameOf(header));
  }
  return names;
}

using Names = std::set<std::string>;

struct Whole {
  const char* what;
  Bytes frame;
  Names names;
  uint32_t payload, end;
};

const Bytes kOddData = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};  // an odd number of bytes

const Whole kWhole[] = {
    {"unknown type", ethernet(0x88CC, kOddData), {"ethernet"}, 14, 25},
    {"length instead of a type", ethernet(11, kOddData), {"ethernet"}, 14, 25},
    {"nothing inside", ethernet(0x88CC, {}), {"ethernet"}, 14, 14},
    {"one tag", ethernet(kVlanType, tag(5, 0x88CC, kOddData)), {"ethernet", "vlan"}, 18, 29},
    {"service tag",
     ethernet(kServiceVlanType, tag(5, 0x88CC, kOddData)),
     {"ethernet", "vlan"},
     18,
     29},
    {"third tag is payload",
     ethernet(kServiceVlanType, tag(5, kVlanType, tag(6, kVlanType, tag(7, kIpv4Type, kOddData)))),
     {"ethernet", "vlan", "vlan1"},
     22,
     37},
    {"arp", ethernet(kArpType, arp()), {"ethernet", "arp"}, 42, 42},
    {"padded arp", ethernet(kArpType, join({arp(), Bytes(18, 0)})), {"ethernet", "arp"}, 42, 60},
    {"padded ipv4",
     ethernet(kIpv4Type, join({ipv4(kUdp, udp({1})), Bytes(17, 0)})),
     {"ethernet", "ipv4", "udp", "l4"},
     42,
     43},
    {"ipv4 without contents", ethernet(kIpv4Type, ipv4(99, {})), {"ethernet", "ipv4"}, 34, 34},
    {"tcp with options",
     ethernet(kIpv4Type, ipv4(kTcp, tcp(kOddData, {1, 1, 1, 0}), {1, 1, 1, 0})),
     {"ethernet", "ipv4", "tcp", "l4"},
     62,
     73},
    {"icmp",
     ethernet(kIpv4Type, ipv4(kIcmp, icmp(kOddData))),
     {"ethernet", "ipv4", "icmp"},
     42,
     53},
    {"icmpv6 is payload of ipv4",
     ethernet(kIpv4Type, ipv4(kIcmpv6, icmpv6(kOddData))),
     {"ethernet", "ipv4"},
     34,
     53},
    {"first fragment",
     ethernet(kIpv4Type, ipv4(kUdp, udp(kOddData), {}, 0x2000)),
     {"ethernet", "ipv4", "udp", "l4"},
     42,
     53},
    {"later fragment",
     ethernet(kIpv4Type, ipv4(kUdp, kOddData, {}, 0x2001)),
     {"ethernet", "ipv4"},
     34,
     45},
    {"last fragment",
     ethernet(kIpv4Type, ipv4(kTcp, kOddData, {}, 0x0001)),
     {"ethernet", "ipv4"},
     34,
     45},
    {"icmp is payload of ipv6",
     ethernet(kIpv6Type, ipv6(kIcmp, icmp(kOddData))),
     {"ethernet", "ipv6"},
     54,
     73},
    {"shortest icmpv6",
     ethernet(kIpv6Type, ipv6(kIcmpv6, {1, 2, 3, 4})),
     {"ethernet", "ipv6", "icmpv6"},
     58,
     58},
    {"padded ipv6",
     ethernet(kIpv6Type, join({ipv6(kNoNext, {}), Bytes(6, 0)})),
     {"ethernet", "ipv6"},
     54,
     54},
    {"ipv6 hop by hop",
     ethernet(kIpv6Type, ipv6(kHopByHop, extension(kUdp, 0, udp(kOddData)))),
     {"ethernet", "ipv6", "udp", "l4"},
     70,
     81},
    {"ipv6 destination options",
     ethernet(kIpv6Type, ipv6(kDestination, extension(kTcp, 16, tcp(kOddData)))),
     {"ethernet", "ipv6", "tcp", "l4"},
     98,
     109},
    {"ipv6 routing",
     ethernet(kIpv6Type, ipv6(kRouting, routing(kUdp, 0, udp(kOddData)))),
     {"ethernet", "ipv6", "udp", "l4"},
     86,
     97},
    {"ipv6 authentication",
     ethernet(kIpv6Type, ipv6(kAuthentication, authentication(kIcmpv6, icmpv6(kOddData)))),
     {"ethernet", "ipv6", "icmpv6"},
     82,
     97},
    {"ipv6 first fragment",
     ethernet(kIpv6Type, ipv6(kFragment, fragmentHeader(kUdp, 0x0001, udp(kOddData)))),
     {"ethernet", "ipv6", "udp", "l4"},
     70,
     81},
    {"ipv6 later fragment",
     ethernet(kIpv6Type, ipv6(kFragment, fragmentHeader(kUdp, 0x0008, kOddData))),
     {"ethernet", "ipv6"},
     62,
     73},
    {"ipv6 encryption is payload",
     ethernet(kIpv6Type, ipv6(kEncryption, kOddData)),
     {"ethernet", "ipv6"},
     54,
     65},
    {"ipv6 no next header",
     ethernet(kIpv6Type, ipv6(kHopByHop, extension(kNoNext, 0, kOddData))),
     {"ethernet", "ipv6"},
     62,
     73},
};

TEST(Parse, FindsTheHeadersOfWholeFrames) {
  for (const Whole& row : kWhole) {
    SCOPED_TRACE(row.what);
    const Parsed sut = parsed(row.frame);
    EXPECT_EQ(sut.status, ParseStatus::kOk) << reasonOf(sut.status);
    EXPECT_EQ(namesIn(sut.headers), row.names);
    EXPECT_EQ(sut.headers.payload, row.payload);
    EXPECT_EQ(sut.headers.end, row.end);
    EXPECT_TRUE(sut.headers.has(Header::kMeta));
  }
}

TEST(Parse, TellsWhereEachHeaderBegins) {
  const Headers tagged =
      parsed(
          ethernet(kServiceVlanType,
                   tag(5, kVlanType, tag(6, kIpv4Type, ipv4(kTcp, tcp(kOddData), {1, 1, 1, 0})))))
          .headers;
  EXPECT_EQ(tagged.at(Header::kEthernet), 0);
  EXPECT_EQ(tagged.at(Header::kVlan), 14);
  EXPECT_EQ(tagged.at(Header::kVlan1), 18);
  EXPECT_EQ(tagged.at(Header::kIpv4), 22);
  EXPECT_EQ(tagged.at(Header::kTcp), 46);
  EXPECT_EQ(tagged.at(Header::kL4), 46);

  const Headers extended =
      parsed(ethernet(kIpv6Type, ipv6(kHopByHop, extension(kUdp, 8, udp(kOddData))))).headers;
  EXPECT_EQ(extended.at(Header::kIpv6), 14);
  EXPECT_EQ(extended.at(Header::kUdp), 70);
}

TEST(Parse, TellsFragmentsFromWholeDatagrams) {
  const auto isFragment4 = [](uint16_t bits) {
    return parsed(ethernet(kIpv4Type, ipv4(kUdp, udp(kOddData), {}, bits))).headers.fragment;
  };
  EXPECT_FALSE(isFragment4(0));
  EXPECT_FALSE(isFragment4(0x4000));  // "do not fragment"
  EXPECT_TRUE(isFragment4(0x2000));
  EXPECT_TRUE(isFragment4(0x0001));
  const auto isFragment6 = [](uint16_t bits) {
    return parsed(ethernet(kIpv6Type, ipv6(kFragment, fragmentHeader(kUdp, bits, udp(kOddData)))))
        .headers.fragment;
  };
  EXPECT_FALSE(isFragment6(0));       // alone, though it says that it is one
  EXPECT_FALSE(isFragment6(0x0006));  // reserved bits
  EXPECT_TRUE(isFragment6(0x0001));
  EXPECT_TRUE(isFragment6(0x0008));
}

TEST(Parse, SeesSourceRoutesThatAreNotAtTheirEnd) {
  const auto isRouted4 = [](const Bytes& options) {
    const Parsed result = parsed(ethernet(kIpv4Type, ipv4(kTcp, tcp(kOddData), options)));
    EXPECT_EQ(result.status, ParseStatus::kOk);
    return result.headers.source_routed;
  };
  EXPECT_TRUE(isRouted4({131, 7, 4, 10, 0, 0, 1, 0}));
  EXPECT_TRUE(isRouted4({1, 137, 7, 4, 10, 0, 0, 1}));
  EXPECT_TRUE(isRouted4({7, 3, 4, 1, 131, 7, 4, 10, 0, 0, 1, 0}));  // behind another option
  EXPECT_FALSE(isRouted4({131, 7, 8, 10, 0, 0, 1, 0}));             // been everywhere
  EXPECT_FALSE(isRouted4({0, 131, 7, 4, 10, 0, 0, 1}));             // behind the end of the list
  EXPECT_FALSE(isRouted4({131, 9, 4, 10, 0, 0, 1, 0}));             // longer than the header
  EXPECT_FALSE(isRouted4({1, 1, 1, 131}));                          // without a length
  EXPECT_FALSE(isRouted4({7, 0, 0, 0}));                            // length that leads nowhere
  const auto isRouted6 = [](uint8_t left) {
    return parsed(ethernet(kIpv6Type, ipv6(kRouting, routing(kUdp, left, udp(kOddData)))))
        .headers.source_routed;
  };
  EXPECT_TRUE(isRouted6(1));
  EXPECT_FALSE(isRouted6(0));
}

Bytes cut(Bytes bytes, size_t size) {
  bytes.resize(size);
  return bytes;
}

TEST(Parse, TakesArpForOtherAddressesAsPayload) {
  for (const size_t byte : {1U, 2U, 4U, 5U}) {
    Bytes other = arp();
    other[byte] ^= 0x40;
    const Parsed sut = parsed(ethernet(kArpType, other));
    EXPECT_EQ(sut.status, ParseStatus::kOk);
    EXPECT_EQ(namesIn(sut.headers), Names{"ethernet"}) << byte;
    EXPECT_EQ(sut.headers.payload, 14U);
    EXPECT_EQ(parsed(ethernet(kArpType, cut(other, 12))).status, ParseStatus::kOk) << byte;
  }
}

struct Wrong {
  const char* what;
  Bytes frame;
  ParseStatus status;
  Names names;  // in front of the wrong one
};

Bytes withByte(Bytes frame, size_t at, uint8_t value) {
  frame.at(at) = value;
  return frame;
}

Bytes extensions(unsigned count, const Bytes& inside) {
  Bytes chain = extension(kUdp, 0, inside);
  for (unsigned i = 1; i < count; ++i) chain = extension(kDestination, 0, chain);
  return ethernet(kIpv6Type, ipv6(kDestination, chain));
}

const Bytes kTcp4 = ethernet(kIpv4Type, ipv4(kTcp, tcp({})));
const Bytes kTcp6 = ethernet(kIpv6Type, ipv6(kTcp, tcp({})));
const Bytes kUdp4 = ethernet(kIpv4Type, ipv4(kUdp, udp(kOddData)));

const Wrong kWrong[] = {
    {"nothing", {}, ParseStatus::kTruncatedEthernet, {}},
    {"13 bytes", Bytes(13, 0), ParseStatus::kTruncatedEthernet, {}},
    {"half a tag", ethernet(kVlanType, {0, 5}), ParseStatus::kTruncatedVlan, {"ethernet"}},
    {"half a second tag",
     ethernet(kVlanType, tag(5, kVlanType, {0, 6, 8})),
     ParseStatus::kTruncatedVlan,
     {"ethernet", "vlan"}},
    {"short arp", ethernet(kArpType, cut(arp(), 27)), ParseStatus::kTruncatedArp, {"ethernet"}},
    {"arp of no kind", ethernet(kArpType, cut(arp(), 5)), ParseStatus::kTruncatedArp, {"ethernet"}},
    {"short ipv4", ethernet(kIpv4Type, Bytes(19, 0x45)), ParseStatus::kTruncatedIpv4, {"ethernet"}},
    {"ipv4 options behind the frame",
     withByte(ethernet(kIpv4Type, ipv4(99, {})), 14, 0x46),
     ParseStatus::kTruncatedIpv4,
     {"ethernet"}},
    {"ipv4 version", withByte(kTcp4, 14, 0x65), ParseStatus::kIpv4Version, {"ethernet"}},
    {"ipv4 header length", withByte(kTcp4, 14, 0x44), ParseStatus::kIpv4HeaderLength, {"ethernet"}},
    {"ipv4 total beyond the frame",
     withByte(kTcp4, 17, 41),
     ParseStatus::kIpv4TotalLength,
     {"ethernet"}},
    {"ipv4 total within the header",
     withByte(kTcp4, 17, 19),
     ParseStatus::kIpv4TotalLength,
     {"ethernet"}},
    {"short ipv6", ethernet(kIpv6Type, Bytes(39, 0x60)), ParseStatus::kTruncatedIpv6, {"ethernet"}},
    {"ipv6 version", withByte(kTcp6, 14, 0x40), ParseStatus::kIpv6Version, {"ethernet"}},
    {"ipv6 beyond the frame",
     withByte(kTcp6, 19, 21),
     ParseStatus::kIpv6PayloadLength,
     {"ethernet"}},
    {"extension of 7 bytes",
     ethernet(kIpv6Type, ipv6(kHopByHop, Bytes(7, 0))),
     ParseStatus::kTruncatedIpv6Extension,
     {"ethernet", "ipv6"}},
    {"extension beyond the datagram",
     ethernet(kIpv6Type, ipv6(kHopByHop, {kTcp, 1, 1, 4, 0, 0, 0, 0})),
     ParseStatus::kTruncatedIpv6Extension,
     {"ethernet", "ipv6"}},
    {"authentication beyond the datagram",
     ethernet(kIpv6Type, ipv6(kAuthentication, {kTcp, 1, 0, 0, 0, 0, 0, 0})),
     ParseStatus::kTruncatedIpv6Extension,
     {"ethernet", "ipv6"}},
    {"nine extensions",
     extensions(9, udp(kOddData)),
     ParseStatus::kIpv6TooManyExtensions,
     {"ethernet", "ipv6"}},
    {"tcp cut by the datagram",
     ethernet(kIpv4Type, join({ipv4(kTcp, Bytes(19, 0x50)), Bytes(9, 0)})),
     ParseStatus::kTruncatedTcp,
     {"ethernet", "ipv4"}},
    {"tcp options beyond the datagram",
     withByte(kTcp4, 46, 0x60),
     ParseStatus::kTruncatedTcp,
     {"ethernet", "ipv4"}},
    {"tcp header length",
     withByte(kTcp4, 46, 0x40),
     ParseStatus::kTcpHeaderLength,
     {"ethernet", "ipv4"}},
    {"short udp",
     ethernet(kIpv6Type, ipv6(kUdp, Bytes(7, 0))),
     ParseStatus::kTruncatedUdp,
     {"ethernet", "ipv6"}},
    {"udp shorter than its header",
     withByte(kUdp4, 39, 7),
     ParseStatus::kUdpLength,
     {"ethernet", "ipv4"}},
    {"udp beyond the datagram",
     withByte(kUdp4, 39, 20),
     ParseStatus::kUdpLength,
     {"ethernet", "ipv4"}},
    {"short icmp",
     ethernet(kIpv4Type, ipv4(kIcmp, Bytes(7, 0))),
     ParseStatus::kTruncatedIcmp,
     {"ethernet", "ipv4"}},
    {"short icmpv6",
     ethernet(kIpv6Type, ipv6(kIcmpv6, Bytes(3, 0))),
     ParseStatus::kTruncatedIcmpv6,
     {"ethernet", "ipv6"}},
};

TEST(Parse, SaysWhatIsWrongWithAFrame) {
  for (const Wrong& row : kWrong) {
    SCOPED_TRACE(row.what);
    const Parsed sut = parsed(row.frame);
    EXPECT_STREQ(reasonOf(sut.status), reasonOf(row.status));
    EXPECT_EQ(namesIn(sut.headers), row.names);
  }
}

TEST(Parse, EveryReasonIsGivenByAFrameOfTheseTests) {
  std::set<ParseStatus> seen = {ParseStatus::kOk, ParseStatus::kCutByCapture};
  for (const Wrong& row : kWrong) seen.insert(row.status);
  EXPECT_EQ(seen.size(), kParseStatusCount);
}

TEST(Parse, WalksAlongAsManyExtensionsAsItPromises) {
  const Parsed sut = parsed(extensions(kMaxIpv6Extensions, udp(kOddData)));
  EXPECT_EQ(sut.status, ParseStatus::kOk);
  EXPECT_TRUE(sut.headers.has(Header::kUdp));
}

TEST(Parse, FirstFragmentMayAnnounceMoreThanItHas) {
  const Bytes first = ethernet(kIpv4Type, ipv4(kUdp, udp(Bytes(1000, 1)), {}, 0x2000));
  Bytes frame(first.begin(), first.begin() + 34 + 16);
  setWord(&frame, 16, 36);  // total length
  EXPECT_EQ(parsed(frame).status, ParseStatus::kOk);
}

TEST(Parse, NoBeginOfAFrameIsReadPastItsEnd) {
  for (const Sample& sample : samples(kOddData)) {
    SCOPED_TRACE(sample.name);
    for (size_t size = 0; size < sample.frame.size(); ++size) {
      const Parsed sut =
          parsed(Bytes(sample.frame.begin(), sample.frame.begin() + static_cast<ptrdiff_t>(size)));
      EXPECT_NE(sut.status, ParseStatus::kOk) << size;
      EXPECT_LE(sut.headers.payload, sut.headers.end);
      EXPECT_LE(sut.headers.end, size);
    }
    EXPECT_EQ(parsed(sample.frame).status, ParseStatus::kOk);
  }
}

TEST(Parse, FramesThatTheCaptureCutAreNotTaken) {
  const Bytes frame = ethernet(0x88CC, kOddData);
  Headers headers;
  EXPECT_EQ(parse(frame.data(), frame.size(), frame.size() + 1, &headers),
            ParseStatus::kCutByCapture);
  EXPECT_EQ(namesIn(headers), Names{});
  EXPECT_EQ(parse(frame.data(), frame.size(), frame.size(), &headers), ParseStatus::kOk);
}

TEST(Parse, TruncatedAndMalformedAreToldApart) {
  EXPECT_FALSE(isTruncated(ParseStatus::kOk));
  EXPECT_TRUE(isTruncated(ParseStatus::kCutByCapture));
  EXPECT_TRUE(isTruncated(ParseStatus::kTruncatedEthernet));
  EXPECT_TRUE(isTruncated(ParseStatus::kTruncatedIcmpv6));
  EXPECT_FALSE(isTruncated(ParseStatus::kIpv4Version));
  EXPECT_FALSE(isTruncated(ParseStatus::kUdpLength));
}

TEST(Header, IsFoundByItsName) {
  for (const char* name : {"ethernet", "vlan", "vlan1", "arp", "ipv4", "ipv6", "tcp", "udp", "icmp",
                           "icmpv6", "l4", "meta"}) {
    const auto found = findHeader(name);
    ASSERT_TRUE(found.has_value()) << name;
    EXPECT_STREQ(nameOf(*found), name);
  }
  EXPECT_EQ(findHeader("vlan2"), std::nullopt);
  EXPECT_EQ(findHeader(""), std::nullopt);
  EXPECT_EQ(findHeader("IPv4"), std::nullopt);
}

}  // namespace
}  // namespace jxmodel
