#include "model/program/constant.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace jxmodel {
namespace {

using Bytes = std::vector<uint8_t>;

struct ConstantRow {
  const char* text;
  uint32_t width;
  ConstantStatus status;
  Bytes bytes;
};

const ConstantRow kConstantRows[] = {
    {"0", 1, ConstantStatus::kOk, {0}},
    {"1", 1, ConstantStatus::kOk, {1}},
    {"2", 1, ConstantStatus::kTooWide, {}},
    {"511", 9, ConstantStatus::kOk, {1, 0xFF}},
    {"512", 9, ConstantStatus::kTooWide, {}},
    {"65535", 16, ConstantStatus::kOk, {0xFF, 0xFF}},
    {"65536", 16, ConstantStatus::kTooWide, {}},
    {"0007", 8, ConstantStatus::kOk, {7}},
    {"0xabc", 12, ConstantStatus::kOk, {0x0A, 0xBC}},
    {"0XaBc", 16, ConstantStatus::kOk, {0x0A, 0xBC}},
    {"0x00000001", 1, ConstantStatus::kOk, {1}},
    {"0x1000", 12, ConstantStatus::kTooWide, {}},
    {"02:00:5e:10:00:ff", 48, ConstantStatus::kOk, {0x02, 0, 0x5E, 0x10, 0, 0xFF}},
    {"02:00:5e:10:00:ff", 40, ConstantStatus::kTooWide, {}},
    {"192.0.2.1", 32, ConstantStatus::kOk, {192, 0, 2, 1}},
    {"192.0.2.1", 40, ConstantStatus::kOk, {0, 192, 0, 2, 1}},
    {"192.0.2.1", 31, ConstantStatus::kTooWide, {}},
    {"2001:db8::1",
     128,
     ConstantStatus::kOk,
     {0x20, 1, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}},
    {"2001:db8::1", 120, ConstantStatus::kTooWide, {}},
    {"::7", 8, ConstantStatus::kOk, {7}},
    {"340282366920938463463374607431768211455", 128, ConstantStatus::kOk, Bytes(16, 0xFF)},
    {"340282366920938463463374607431768211456", 128, ConstantStatus::kTooWide, {}},
    {"", 8, ConstantStatus::kMalformed, {}},
    {" 1", 8, ConstantStatus::kMalformed, {}},
    {"-1", 8, ConstantStatus::kMalformed, {}},
    {"1.5", 8, ConstantStatus::kMalformed, {}},
    {"0x", 8, ConstantStatus::kMalformed, {}},
    {"0xg", 8, ConstantStatus::kMalformed, {}},
    {"9a", 8, ConstantStatus::kMalformed, {}},
    {"99999999999x", 8, ConstantStatus::kMalformed, {}},
    {"192.0.2", 32, ConstantStatus::kMalformed, {}},
    {"192.0.2.256", 32, ConstantStatus::kMalformed, {}},
    {"02:00:5e:10:00", 48, ConstantStatus::kMalformed, {}},
    {"02-00-5e-10-00-ff", 48, ConstantStatus::kMalformed, {}},
    {"2001:db8:::1", 128, ConstantStatus::kMalformed, {}},
};

TEST(ParseConstant, ReadsEachFormAndRefusesTheRest) {
  for (const ConstantRow& row : kConstantRows) {
    SCOPED_TRACE(std::string(row.text) + " in " + std::to_string(row.width) + " bits");
    Bytes bytes;
    const ConstantStatus status = parseConstant(row.text, row.width, &bytes);
    EXPECT_EQ(status, row.status);
    if (row.status == ConstantStatus::kOk) {
      EXPECT_EQ(bytes, row.bytes);
    }
  }
}

TEST(ParseConstant, DoesNotStopAtAZeroByte) {
  Bytes bytes;
  EXPECT_EQ(parseConstant(std::string("192.0.2.1\0x", 11), 32, &bytes), ConstantStatus::kMalformed);
}

// All ones fit each width from 1 to 200 exactly; one bit more does not.
TEST(ParseConstant, KnowsTheGreatestValueOfEachWidth) {
  for (uint32_t width = 1; width <= 200; ++width) {
    SCOPED_TRACE(width);
    const char* const first_digits[] = {"", "1", "3", "7"};
    const std::string ones =
        std::string("0x") + first_digits[width % 4] + std::string(width / 4, 'f');
    Bytes expected((width + 7) / 8, 0xFF);
    if (width % 8 != 0) expected.front() = static_cast<uint8_t>((1U << width % 8) - 1);
    Bytes bytes;
    ASSERT_EQ(parseConstant(ones, width, &bytes), ConstantStatus::kOk);
    EXPECT_EQ(bytes, expected);
    if (width > 1) {
      EXPECT_EQ(parseConstant(ones, width - 1, &bytes), ConstantStatus::kTooWide);
    }
  }
}

}  // namespace
}  // namespace jxmodel
