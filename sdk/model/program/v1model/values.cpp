#include "model/program/v1model/values.h"

#include <algorithm>

#include "model/program/program.h"

namespace jxmodel::v1model {
namespace {

// -1 for anything but a digit.
int digitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

struct HexText {
  bool negative = false;
  std::string_view digits;
};

HexText splitHex(const Node& node) {
  std::string_view text = node.string();
  HexText hex;
  hex.negative = !text.empty() && text.front() == '-';
  if (hex.negative) text.remove_prefix(1);
  const bool prefixed = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  if (prefixed) hex.digits = text.substr(2);
  const bool all_digits =
      std::all_of(hex.digits.begin(), hex.digits.end(), [](char c) { return digitOf(c) >= 0; });
  if (!prefixed || !all_digits) node.fail(inQuotes(node.string()) + " is no number in 0x form");
  return hex;
}

std::vector<uint8_t> bytesOfDigits(std::string_view digits) {
  std::vector<uint8_t> bytes((digits.size() + 1) / 2);
  for (size_t i = 0; i < digits.size(); ++i) {
    const size_t from_end = digits.size() - 1 - i;
    const int value = digitOf(digits[i]) << (from_end % 2 * 4);
    uint8_t& byte = bytes[bytes.size() - 1 - from_end / 2];
    byte = static_cast<uint8_t>(byte | value);
  }
  return bytes;
}

void dropLeadingZeros(std::vector<uint8_t>* bytes) {
  bytes->erase(bytes->begin(),
               std::find_if(bytes->begin(), bytes->end(), [](uint8_t byte) { return byte != 0; }));
}

void negate(std::vector<uint8_t>* bytes) {
  bool carry = true;
  for (auto byte = bytes->rbegin(); byte != bytes->rend(); ++byte) {
    *byte = static_cast<uint8_t>(~*byte + (carry ? 1 : 0));
    carry = carry && *byte == 0;
  }
}

// Whether the magnitude is a power of two: as a negative number it needs no bit for the sign.
bool isPowerOfTwo(const Number& number) {
  if (number.magnitude.empty()) return false;
  const uint8_t top = number.magnitude.front();
  return (top & (top - 1)) == 0 && std::all_of(number.magnitude.begin() + 1, number.magnitude.end(),
                                               [](uint8_t byte) { return byte == 0; });
}

}  // namespace

Number readHex(const Node& node) {
  const HexText hex = splitHex(node);
  Number number{hex.negative, bytesOfDigits(hex.digits)};
  dropLeadingZeros(&number.magnitude);
  number.negative = number.negative && !number.magnitude.empty();
  return number;
}

Number numberOf(uint64_t value) {
  Number number;
  for (int shift = 56; shift >= 0; shift -= 8) {
    number.magnitude.push_back(static_cast<uint8_t>(value >> shift));
  }
  dropLeadingZeros(&number.magnitude);
  return number;
}

uint32_t readSmallHex(const Node& node, const char* what, uint32_t max) {
  const Number number = readHex(node);
  uint64_t value = 0;
  if (number.magnitude.size() <= 4) {
    for (const uint8_t byte : number.magnitude) value = value << 8 | byte;
  }
  if (number.negative || number.magnitude.size() > 4 || value > max) {
    node.fail(std::string(what) + " " + textOf(number) + " is not from 0 to " +
              std::to_string(max));
  }
  return static_cast<uint32_t>(value);
}

uint32_t bitsOf(const Number& number) {
  if (number.magnitude.empty()) return 0;
  uint32_t bits = static_cast<uint32_t>(number.magnitude.size() - 1) * 8;
  for (uint8_t top = number.magnitude.front(); top != 0; top = static_cast<uint8_t>(top >> 1)) {
    ++bits;
  }
  return bits;
}

std::vector<uint8_t> bytesOfWidth(const Number& number, uint32_t width, const Node& node) {
  const uint32_t sign = number.negative && !isPowerOfTwo(number) ? 1 : 0;
  if (bitsOf(number) + sign > width) {
    node.fail("value " + textOf(number) + " does not fit " + std::to_string(width) + " bits");
  }
  std::vector<uint8_t> bytes(bytesOf(width) - number.magnitude.size(), 0);
  bytes.insert(bytes.end(), number.magnitude.begin(), number.magnitude.end());
  if (!number.negative) return bytes;
  negate(&bytes);
  if (width % 8 != 0)
    bytes.front() = static_cast<uint8_t>(bytes.front() & (0xFF >> (8 - width % 8)));
  return bytes;
}

std::vector<uint8_t> readHexOfWidth(const Node& node, uint32_t width) {
  return bytesOfWidth(readHex(node), width, node);
}

std::vector<uint8_t> readPaddedHex(const Node& node, size_t bytes) {
  const HexText hex = splitHex(node);
  if (hex.negative) node.fail("must not be negative");
  if (hex.digits.size() > 2 * bytes) {
    node.fail(inQuotes(node.string()) + " has " + std::to_string(hex.digits.size()) +
              " digits, the key only " + std::to_string(2 * bytes));
  }
  std::vector<uint8_t> value = bytesOfDigits(hex.digits);
  value.insert(value.begin(), bytes - value.size(), 0);
  return value;
}

std::string textOf(const Number& number) {
  constexpr size_t kShownBytes = 24;
  const std::string sign = number.negative ? "-" : "";
  if (number.magnitude.size() <= 8) {
    uint64_t value = 0;
    for (const uint8_t byte : number.magnitude) value = value << 8 | byte;
    return sign + std::to_string(value);
  }
  std::string text = sign + "0x";
  for (size_t i = 0; i < std::min(number.magnitude.size(), kShownBytes); ++i) {
    text += "0123456789abcdef"[number.magnitude[i] >> 4];
    text += "0123456789abcdef"[number.magnitude[i] & 0xF];
  }
  return number.magnitude.size() > kShownBytes ? text + "..." : text;
}

}  // namespace jxmodel::v1model
