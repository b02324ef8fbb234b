#include "value.h"

#include <gtest/gtest.h>

#include <random>

#include "bytes.h"

namespace jexapps {
namespace {

constexpr FieldRef kPort{"meta.ingress_port", 9};
constexpr FieldRef kMac{"ethernet.src", 48};
constexpr FieldRef kIpv4{"ipv4.dst", 32};
constexpr FieldRef kIpv6{"ipv6.dst", 128};
constexpr FieldRef kNumber32{"meta.cookie", 32};
constexpr FieldRef kWide{"meta.wide", 100};

Bytes parsed(std::string_view text, FieldRef field) {
  Bytes value = "untouched";
  std::string error;
  EXPECT_TRUE(parseValue(text, field, &value, &error)) << error;
  return value;
}

std::string refusal(std::string_view text, FieldRef field) {
  Bytes value = "untouched";
  std::string error;
  EXPECT_FALSE(parseValue(text, field, &value, &error)) << text;
  EXPECT_EQ(value, "untouched");
  return error;
}

std::string written(FieldRef field, const Bytes& value) {
  std::string text;
  appendValue(field, value, &text);
  return text;
}

std::string rewritten(std::string_view text, FieldRef field, jx_rt_key_match_type_t kind) {
  Match match;
  std::string error, out;
  if (!parseMatch(text, field, kind, &match, &error)) return "refused: " + error;
  appendMatch(field, kind, match, &out);
  return out;
}

TEST(Value, EveryNotationIsReadToNetworkOrder) {
  EXPECT_EQ(parsed("511", kPort), bytes({1, 255}));
  EXPECT_EQ(parsed("0x1ff", kPort), bytes({1, 255}));
  EXPECT_EQ(parsed("02:00:00:00:aB:01", kMac), bytes({2, 0, 0, 0, 0xab, 1}));
  EXPECT_EQ(parsed("10.1.2.3", kIpv4), bytes({10, 1, 2, 3}));
  EXPECT_EQ(parsed("167838211", kIpv4), bytes({10, 1, 2, 3}));
  EXPECT_EQ(parsed("2001:db8::1", kIpv6),
            bytes({0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
  EXPECT_EQ(parsed("0x123456789abcdef0", {"meta.x", 64}),
            bytes({0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc, 0xde, 0xf0}));
  EXPECT_EQ(parsed("18446744073709551615", {"meta.x", 64}), Bytes(8, '\xff'));
  EXPECT_EQ(parsed("0x0000000001", {"meta.x", 1}), bytes({1}));
}

TEST(Value, RefusalsNameTextFieldAndReason) {
  EXPECT_EQ(refusal("512", kPort), "value '512' does not fit meta.ingress_port (9 bits)");
  EXPECT_EQ(refusal("0x200", kPort), "value '0x200' does not fit meta.ingress_port (9 bits)");
  EXPECT_EQ(refusal("2", {"meta.bit", 1}), "value '2' does not fit meta.bit (1 bit)");
  EXPECT_EQ(refusal("0x", kPort), "value '0x' has no digits");
  EXPECT_EQ(refusal("0xfg", kPort), "value '0xfg' is no hexadecimal number");
  EXPECT_EQ(refusal("", kPort), "value '' of meta.ingress_port is empty");
  EXPECT_EQ(refusal("-1", kPort),
            "value '-1' of meta.ingress_port (9 bits) is neither a number nor an address");
  EXPECT_EQ(refusal("7x", kPort),
            "value '7x' of meta.ingress_port (9 bits) is neither a number nor an address");
  EXPECT_EQ(refusal("02:00:00:00:00:01", kPort),
            "value '02:00:00:00:00:01' is a MAC address (48 bits), not a value of "
            "meta.ingress_port (9 bits)");
  EXPECT_EQ(refusal("02:00:00:00:00", kMac), "value '02:00:00:00:00' is no MAC address");
  EXPECT_EQ(refusal("10.0.0.256", kIpv4), "value '10.0.0.256' is no IPv4 address");
  EXPECT_EQ(refusal("10.0.0.1", kIpv6),
            "value '10.0.0.1' is an IPv4 address (32 bits), not a value of ipv6.dst (128 bits)");
  EXPECT_EQ(refusal("2001:db8::g", kIpv6), "value '2001:db8::g' is no IPv6 address");
  EXPECT_EQ(refusal("18446744073709551616", {"meta.x", 64}),
            "value '18446744073709551616' does not fit meta.x (64 bits)");
  EXPECT_EQ(refusal("18446744073709551616", kWide),
            "value '18446744073709551616' is beyond 64 bits: write it in hexadecimal");
}

TEST(Value, NotationDependsOnTheFieldAlone) {
  EXPECT_EQ(written(kMac, bytes({2, 0, 0, 0, 0xab, 1})), "02:00:00:00:ab:01");
  EXPECT_EQ(written(kIpv4, bytes({10, 0, 200, 1})), "10.0.200.1");
  EXPECT_EQ(written({"arp.tpa", 32}, bytes({10, 0, 200, 1})), "10.0.200.1");
  EXPECT_EQ(written(kNumber32, bytes({0, 0, 1, 0})), "256");
  EXPECT_EQ(written(kIpv6, Bytes(16, '\0')), "::");
  EXPECT_EQ(written({"meta.x", 64}, Bytes(8, '\xff')), "18446744073709551615");
  EXPECT_EQ(written(kWide, Bytes(13, '\0')), "0x0");
  EXPECT_EQ(written(kWide, Bytes(12, '\0') + bytes({0x5a})), "0x5a");
}

TEST(Value, WhatIsWrittenIsReadBackForEveryWidth) {
  std::mt19937 random(1);
  for (uint32_t width = 1; width <= 256; ++width) {
    Bytes value(bytesOf(width), '\0');
    for (char& byte : value) byte = static_cast<char>(random());
    if (width % 8 != 0) value[0] = static_cast<char>(value[0] & ((1 << width % 8) - 1));
    for (const char* name : {"meta.x", "ipv4.src"}) {
      const FieldRef field{name, width};
      EXPECT_EQ(parsed(written(field, value), field), value) << width;
    }
  }
}

TEST(Match, LpmIsStoredUnderItsPrefix) {
  EXPECT_EQ(rewritten("10.0.0.0/8", kIpv4, JX_RT_MATCH_LPM), "10.0.0.0/8");
  EXPECT_EQ(rewritten("10.1.2.3", kIpv4, JX_RT_MATCH_LPM), "10.1.2.3/32");
  EXPECT_EQ(rewritten("10.224.0.0/11", kIpv4, JX_RT_MATCH_LPM), "10.224.0.0/11");
  EXPECT_EQ(rewritten("0.0.0.0/0", kIpv4, JX_RT_MATCH_LPM), "0.0.0.0/0");
  EXPECT_EQ(rewritten("2001:db8:8000::/33", kIpv6, JX_RT_MATCH_LPM), "2001:db8:8000::/33");
  EXPECT_EQ(rewritten("256/1", kPort, JX_RT_MATCH_LPM), "256/1");
  EXPECT_EQ(rewritten("511/9", kPort, JX_RT_MATCH_LPM), "511/9");
  EXPECT_EQ(rewritten("10.0.0.0/33", kIpv4, JX_RT_MATCH_LPM),
            "refused: prefix length 33 does not fit ipv4.dst (32 bits)");
  EXPECT_EQ(rewritten("10.0.0.0/", kIpv4, JX_RT_MATCH_LPM),
            "refused: prefix length '' is no number");
}

TEST(Match, BitsBeyondAPrefixAreRefusedWithThePrefixThatWasMeant) {
  const auto refused = [](const char* text, const char* meant) {
    return "refused: value '" + std::string(text) + "' has bits beyond the prefix; " + meant + "?";
  };
  const FieldRef number{"meta.x", 32};
  for (const auto kind : {JX_RT_MATCH_LPM, JX_RT_MATCH_TERNARY}) {
    EXPECT_EQ(rewritten("10.1.2.3/8", kIpv4, kind), refused("10.1.2.3/8", "10.0.0.0/8"));
    EXPECT_EQ(rewritten("10.255.2.3/11", kIpv4, kind), refused("10.255.2.3/11", "10.224.0.0/11"));
    EXPECT_EQ(rewritten("255.255.255.255/0", kIpv4, kind),
              refused("255.255.255.255/0", "0.0.0.0/0"));
    EXPECT_EQ(rewritten("2001:db8:ffff::/33", kIpv6, kind),
              refused("2001:db8:ffff::/33", "2001:db8:8000::/33"));
    EXPECT_EQ(rewritten("511/1", kPort, kind), refused("511/1", "256/1"));
    EXPECT_EQ(rewritten("10.1.2.3/8", number, kind), refused("10.1.2.3/8", "10.0.0.0/8"));
  }
}

TEST(Match, TernaryTakesAPrefix) {
  EXPECT_EQ(rewritten("10.0.0.0/8", kIpv4, JX_RT_MATCH_TERNARY), "10.0.0.0&&&255.0.0.0");
  EXPECT_EQ(rewritten("10.1.2.3/32", kIpv4, JX_RT_MATCH_TERNARY), "10.1.2.3");
  EXPECT_EQ(rewritten("0.0.0.0/0", kIpv4, JX_RT_MATCH_TERNARY), "*");
  EXPECT_EQ(rewritten("2001:db8::/32", kIpv6, JX_RT_MATCH_TERNARY), "2001:db8::&&&ffff:ffff::");
  EXPECT_EQ(rewritten("256/1", kPort, JX_RT_MATCH_TERNARY), "256&&&256");
  EXPECT_EQ(rewritten("10.0.0.0/33", kIpv4, JX_RT_MATCH_TERNARY),
            "refused: prefix length 33 does not fit ipv4.dst (32 bits)");
}

TEST(Match, TernaryIsStoredUnderItsMask) {
  EXPECT_EQ(rewritten("10.1.2.3&&&255.0.0.0", kIpv4, JX_RT_MATCH_TERNARY), "10.0.0.0&&&255.0.0.0");
  EXPECT_EQ(rewritten("10.1.2.3", kIpv4, JX_RT_MATCH_TERNARY), "10.1.2.3");
  EXPECT_EQ(rewritten("10.1.2.3&&&0xffffffff", kIpv4, JX_RT_MATCH_TERNARY), "10.1.2.3");
  EXPECT_EQ(rewritten("*", kIpv4, JX_RT_MATCH_TERNARY), "*");
  EXPECT_EQ(rewritten("7&&&0", kPort, JX_RT_MATCH_TERNARY), "*");
  EXPECT_EQ(rewritten("7&&&512", kPort, JX_RT_MATCH_TERNARY),
            "refused: value '512' does not fit meta.ingress_port (9 bits)");
}

TEST(Match, RangeHasBothEnds) {
  const FieldRef port{"l4.dport", 16};
  EXPECT_EQ(rewritten("80..443", port, JX_RT_MATCH_RANGE), "80..443");
  EXPECT_EQ(rewritten("0x50..80", port, JX_RT_MATCH_RANGE), "80");
  EXPECT_EQ(rewritten("80", port, JX_RT_MATCH_RANGE), "80");
  EXPECT_EQ(rewritten("*", port, JX_RT_MATCH_RANGE), "*");
  EXPECT_EQ(rewritten("0..65535", port, JX_RT_MATCH_RANGE), "*");
  EXPECT_EQ(rewritten("127..128", port, JX_RT_MATCH_RANGE), "127..128");
  EXPECT_EQ(rewritten("10.0.0.1..10.0.0.9", kIpv4, JX_RT_MATCH_RANGE), "10.0.0.1..10.0.0.9");
  EXPECT_EQ(rewritten("443..80", port, JX_RT_MATCH_RANGE),
            "refused: range '443..80' of l4.dport ends before it begins");
  EXPECT_EQ(rewritten("80..", port, JX_RT_MATCH_RANGE), "refused: value '' of l4.dport is empty");
}

TEST(Match, OptionalAndExact) {
  EXPECT_EQ(rewritten("*", kPort, JX_RT_MATCH_OPTIONAL), "*");
  EXPECT_EQ(rewritten("0", kPort, JX_RT_MATCH_OPTIONAL), "0");
  EXPECT_EQ(rewritten("3", kPort, JX_RT_MATCH_EXACT), "3");
  EXPECT_EQ(rewritten("*", kPort, JX_RT_MATCH_EXACT),
            "refused: meta.ingress_port matches exactly and needs a value, not '*'");
}

TEST(Number, TakesDecimalAndHexadecimalUpTo32Bits) {
  uint32_t number = 7;
  std::string error;
  EXPECT_TRUE(parseNumber("4294967295", "group", &number, &error));
  EXPECT_EQ(number, 4294967295u);
  EXPECT_TRUE(parseNumber("0x10", "group", &number, &error));
  EXPECT_EQ(number, 16u);
  EXPECT_FALSE(parseNumber("4294967296", "group", &number, &error));
  EXPECT_EQ(error, "group '4294967296' does not fit 32 bits");
  EXPECT_FALSE(parseNumber("1a", "group", &number, &error));
  EXPECT_EQ(error, "group '1a' is no number");
  EXPECT_EQ(number, 16u);
}

TEST(Number, ListsAreSeparatedByCommas) {
  std::vector<uint32_t> numbers;
  std::string error;
  EXPECT_TRUE(parseNumberList("3,0x4,5", "members", &numbers, &error));
  EXPECT_EQ(numbers, (std::vector<uint32_t>{3, 4, 5}));
  for (const char* wrong : {"", "1,", ",1", "1,,2", "1 2"}) {
    EXPECT_FALSE(parseNumberList(wrong, "members", &numbers, &error)) << wrong;
  }
  EXPECT_EQ(numbers.size(), 3u);
}

}  // namespace
}  // namespace jexapps
