// The algorithms of calculations against published values.
#include "model/machine/hash.h"

#include <gtest/gtest.h>

#include <string>

#include "unit/machine/machine_builder.h"

namespace jxmodel {
namespace {

struct HashCase {
  const char* name;
  HashAlgorithm algorithm;
  std::string input;
  uint64_t value;
};

class Hash : public testing::TestWithParam<HashCase> {};

TEST_P(Hash, HasThePublishedValue) {
  const HashCase& one = GetParam();
  const auto* const data = reinterpret_cast<const uint8_t*>(one.input.data());
  EXPECT_EQ(hashOf(one.algorithm, data, one.input.size()), one.value);
}

const std::string kDigits = "123456789";

INSTANTIATE_TEST_SUITE_P(
    All, Hash,
    testing::Values(HashCase{"Csum16", HashAlgorithm::kCsum16, kDigits, 0xF62A},
                    HashCase{"Crc16", HashAlgorithm::kCrc16, kDigits, 0xBB3D},
                    HashCase{"Crc32", HashAlgorithm::kCrc32, kDigits, 0xCBF43926},
                    HashCase{"Xor16", HashAlgorithm::kXor16, kDigits, 0x3908},
                    HashCase{"Identity", HashAlgorithm::kIdentity, kDigits, 0x3132333435363738},
                    HashCase{"ShortIdentity", HashAlgorithm::kIdentity, "12", 0x3132},
                    HashCase{"EmptyIdentity", HashAlgorithm::kIdentity, "", 0},
                    HashCase{"EmptyCsum16", HashAlgorithm::kCsum16, "", 0xFFFF},
                    // The example of RFC 1071: the sum of its words is 0xddf2.
                    HashCase{"Rfc1071", HashAlgorithm::kCsum16,
                             std::string("\x00\x01\xf2\x03\xf4\xf5\xf6\xf7", 8), 0x220D},
                    HashCase{"Crc16OfZero", HashAlgorithm::kCrc16, std::string(4, '\0'), 0},
                    HashCase{"Crc32OfZero", HashAlgorithm::kCrc32, std::string(4, '\0'),
                             0x2144DF1C}),
    [](const auto& test) { return std::string(test.param.name); });

// Runs an action that hashes two headers of 4 and 12 bits into the first header's second field.
struct HashedPacket {
  jxmachinetest::Builder builder;
  uint32_t out = builder.header("out", {32});
  uint32_t first = builder.header("first", {4, 12});

  std::vector<std::string> run(HashAlgorithm algorithm, uint64_t base, uint64_t max,
                               const std::string& packet) {
    Calculation calculation;
    calculation.algorithm = algorithm;
    calculation.inputs = {FieldInput{builder.field(first, 1)}, ConstantInput{{false, {0xA}}, 4},
                          PayloadInput{}};
    builder.machine.calculations = {calculation};
    builder.state({Extract{ExtractHeader{out}, {}}, Extract{ExtractHeader{first}, {}}});
    HashStep step{};
    step.target = FieldTarget{builder.field(out, 0)};
    step.base = builder.constant(base);
    step.max = builder.constant(max);
    builder.ingress({step, builder.set(builder.egress_spec, 2)});
    return jxmachinetest::Bench(builder).run(packet);
  }
};

TEST(HashStep, TakesBitsWithoutPaddingAndThePayloadLast) {
  // 0x234 and 0xa are the bytes 23 4a; the payload is 55.
  EXPECT_EQ(HashedPacket().run(HashAlgorithm::kIdentity, 0, 0x1'0000'0000, "00000000 1234 55"),
            std::vector<std::string>{"2: 00234a55123455"});
}

TEST(HashStep, AddsTheBaseToTheRemainder) {
  EXPECT_EQ(HashedPacket().run(HashAlgorithm::kIdentity, 0x100, 0x10, "00000000 1234 55"),
            std::vector<std::string>{"2: 00000105123455"});
}

TEST(HashStep, TakesAMaximumOf0For1) {
  EXPECT_EQ(HashedPacket().run(HashAlgorithm::kCrc32, 7, 0, "00000000 1234 55"),
            std::vector<std::string>{"2: 00000007123455"});
}

}  // namespace
}  // namespace jxmodel
