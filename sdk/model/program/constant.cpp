#include "model/program/constant.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "model/program/program.h"

namespace jxmodel {
namespace {

constexpr int kNoDigit = 16;

int digitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return kNoDigit;
}

// bytes := bytes * base + digit. False if that takes more bytes than there are.
bool shiftIn(unsigned base, unsigned digit, std::vector<uint8_t>* bytes) {
  unsigned carry = digit;
  for (auto byte = bytes->rbegin(); byte != bytes->rend(); ++byte) {
    const unsigned value = *byte * base + carry;
    *byte = static_cast<uint8_t>(value & 0xFF);
    carry = value >> 8;
  }
  return carry == 0;
}

// Digits of a number; all of them are looked at before a number counts as too wide.
ConstantStatus parseDigits(std::string_view digits, int base, std::vector<uint8_t>* bytes) {
  const auto in_base = [base](char c) { return digitOf(c) < base; };
  if (digits.empty() || !std::all_of(digits.begin(), digits.end(), in_base)) {
    return ConstantStatus::kMalformed;
  }
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
  for (const char c : digits) {
    if (!shiftIn(static_cast<unsigned>(base), static_cast<unsigned>(digitOf(c)), bytes)) {
      return ConstantStatus::kTooWide;
    }
  }
  return ConstantStatus::kOk;
}

// The digits of a MAC address without its colons; empty if `text` is none.
std::string macDigits(std::string_view text) {
  constexpr size_t kMacLength = 17;  // xx:xx:xx:xx:xx:xx
  std::string digits;
  if (text.size() != kMacLength) return digits;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool colon = i % 3 == 2;
    if (colon ? text[i] != ':' : digitOf(text[i]) == kNoDigit) return {};
    if (!colon) digits += text[i];
  }
  return digits;
}

template <size_t kSize>
ConstantStatus fromBytes(const std::array<uint8_t, kSize>& address, std::vector<uint8_t>* bytes) {
  for (const uint8_t byte : address) {
    if (!shiftIn(256, byte, bytes)) return ConstantStatus::kTooWide;
  }
  return ConstantStatus::kOk;
}

ConstantStatus parseForm(const std::string& text, std::vector<uint8_t>* bytes) {
  const std::string_view view = text;
  if (view.substr(0, 2) == "0x" || view.substr(0, 2) == "0X") {
    return parseDigits(view.substr(2), 16, bytes);
  }
  const std::string mac = macDigits(view);
  if (!mac.empty()) return parseDigits(mac, 16, bytes);
  std::array<uint8_t, 4> ipv4;
  if (inet_pton(AF_INET, text.c_str(), ipv4.data()) == 1) return fromBytes(ipv4, bytes);
  std::array<uint8_t, 16> ipv6;
  if (inet_pton(AF_INET6, text.c_str(), ipv6.data()) == 1) return fromBytes(ipv6, bytes);
  return parseDigits(view, 10, bytes);
}

}  // namespace

ConstantStatus parseConstant(const std::string& text, uint32_t width, std::vector<uint8_t>* bytes) {
  // inet_pton reads up to the first zero byte, digits are checked to the end.
  if (text.find('\0') != std::string::npos) return ConstantStatus::kMalformed;
  bytes->assign(bytesOf(width), 0);
  const ConstantStatus status = parseForm(text, bytes);
  if (status != ConstantStatus::kOk) return status;
  const uint32_t spare_bits = bytesOf(width) * 8 - width;
  const bool fits = bytes->front() >> (8 - spare_bits) == 0;
  return fits ? ConstantStatus::kOk : ConstantStatus::kTooWide;
}

}  // namespace jxmodel
