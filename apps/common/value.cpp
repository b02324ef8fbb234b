#include "value.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace jexapps {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr uint32_t kMacWidth = 48;
constexpr uint32_t kIpv4Width = 32;
constexpr uint32_t kIpv6Width = 128;
constexpr uint32_t kMaxDecimalWidth = 64;

enum class Notation : uint8_t { kMac, kIpv4, kIpv6, kDecimal, kHex };

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

// The only 32-bit fields of these two headers are addresses.
Notation notationOf(FieldRef field) {
  if (field.width == kMacWidth) return Notation::kMac;
  if (field.width == kIpv6Width) return Notation::kIpv6;
  if (field.width == kIpv4Width &&
      (startsWith(field.name, "ipv4.") || startsWith(field.name, "arp."))) {
    return Notation::kIpv4;
  }
  return field.width <= kMaxDecimalWidth ? Notation::kDecimal : Notation::kHex;
}

void appendDecimal(uint64_t number, std::string* out) {
  char digits[20];
  const auto end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
  out->append(digits, end);
}

uint64_t numberOf(std::string_view value) {
  uint64_t number = 0;
  for (const char byte : value) number = number << 8 | static_cast<uint8_t>(byte);
  return number;
}

void appendHexByte(char byte, std::string* out) {
  out->push_back(kHexDigits[static_cast<uint8_t>(byte) >> 4]);
  out->push_back(kHexDigits[byte & 0xF]);
}

void appendMac(std::string_view value, std::string* out) {
  for (size_t i = 0; i < value.size(); ++i) {
    if (i > 0) out->push_back(':');
    appendHexByte(value[i], out);
  }
}

void appendIpv4(std::string_view value, std::string* out) {
  for (size_t i = 0; i < value.size(); ++i) {
    if (i > 0) out->push_back('.');
    appendDecimal(static_cast<uint8_t>(value[i]), out);
  }
}

void appendIpv6(std::string_view value, std::string* out) {
  char text[INET6_ADDRSTRLEN];
  inet_ntop(AF_INET6, value.data(), text, sizeof(text));
  out->append(text);
}

void appendHex(std::string_view value, std::string* out) {
  const size_t begin = out->size() + 2;
  out->append("0x");
  for (const char byte : value) appendHexByte(byte, out);
  const size_t digit = std::min(out->find_first_not_of('0', begin), out->size() - 1);
  out->erase(begin, digit - begin);
}

// The bytes of a field with all `width` bits set.
Bytes allOnes(uint32_t width) {
  Bytes ones(bytesOf(width), '\xff');
  if (width % 8 != 0) ones[0] = static_cast<char>((1u << (width % 8)) - 1);
  return ones;
}

bool isAllZeros(std::string_view value) {
  return value.find_first_not_of('\0') == std::string_view::npos;
}

void applyMask(std::string_view mask, Bytes* value) {
  for (size_t i = 0; i < value->size(); ++i) (*value)[i] = static_cast<char>((*value)[i] & mask[i]);
}

std::string bitsText(FieldRef field) {
  return std::string(field.name) + " (" + std::to_string(field.width) +
         (field.width == 1 ? " bit)" : " bits)");
}

bool failValue(std::string_view text, const std::string& reason, std::string* error) {
  *error = "value '" + std::string(text) + "' " + reason;
  return false;
}

bool failFit(std::string_view text, FieldRef field, std::string* error) {
  return failValue(text, "does not fit " + bitsText(field), error);
}

bool hexDigit(char digit, uint8_t* value) {
  const auto result = std::from_chars(&digit, &digit + 1, *value, 16);
  return result.ec == std::errc();
}

bool parseHex(std::string_view text, FieldRef field, Bytes* value, std::string* error) {
  std::string_view digits = text.substr(2);
  if (digits.empty()) return failValue(text, "has no digits", error);
  Bytes parsed(bytesOf(field.width), '\0');
  size_t place = 0;  // in half bytes, from the end
  for (auto it = digits.rbegin(); it != digits.rend(); ++it, ++place) {
    uint8_t digit = 0;
    if (!hexDigit(*it, &digit)) return failValue(text, "is no hexadecimal number", error);
    if (digit == 0) continue;
    if (place / 2 >= parsed.size()) return failFit(text, field, error);
    char& byte = parsed[parsed.size() - 1 - place / 2];
    byte = static_cast<char>(byte | digit << (place % 2 * 4));
  }
  if (field.width % 8 != 0 && static_cast<uint8_t>(parsed[0]) >> (field.width % 8) != 0) {
    return failFit(text, field, error);
  }
  *value = std::move(parsed);
  return true;
}

bool parseDecimal(std::string_view text, FieldRef field, Bytes* value, std::string* error) {
  if (text.empty()) return failValue(text, "of " + std::string(field.name) + " is empty", error);
  uint64_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec == std::errc::invalid_argument || result.ptr != text.data() + text.size()) {
    return failValue(text, "of " + bitsText(field) + " is neither a number nor an address", error);
  }
  if (result.ec == std::errc::result_out_of_range) {
    if (field.width <= kMaxDecimalWidth) return failFit(text, field, error);
    return failValue(text, "is beyond 64 bits: write it in hexadecimal", error);
  }
  if (field.width < kMaxDecimalWidth && number >> field.width != 0) {
    return failFit(text, field, error);
  }
  Bytes parsed(bytesOf(field.width), '\0');
  for (auto it = parsed.rbegin(); it != parsed.rend() && number != 0; ++it, number >>= 8) {
    *it = static_cast<char>(number & 0xFF);
  }
  *value = std::move(parsed);
  return true;
}

// Six pairs of hexadecimal digits.
bool looksLikeMac(std::string_view text) {
  if (text.size() != 17) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    uint8_t digit = 0;
    if (i % 3 == 2 ? text[i] != ':' : !hexDigit(text[i], &digit)) return false;
  }
  return true;
}

Bytes macBytes(std::string_view text) {
  Bytes bytes;
  for (size_t i = 0; i < text.size(); i += 3) {
    uint8_t high = 0, low = 0;
    hexDigit(text[i], &high);
    hexDigit(text[i + 1], &low);
    bytes.push_back(static_cast<char>(high << 4 | low));
  }
  return bytes;
}

bool parseMac(std::string_view text, FieldRef field, Bytes* value, std::string* error) {
  if (field.width != kMacWidth) {
    return failValue(text, "is a MAC address (48 bits), not a value of " + bitsText(field), error);
  }
  *value = macBytes(text);
  return true;
}

bool parseAddress(int family, std::string_view text, FieldRef field, Bytes* value,
                  std::string* error) {
  const bool is_ipv4 = family == AF_INET;
  const uint32_t width = is_ipv4 ? kIpv4Width : kIpv6Width;
  const char* name = is_ipv4 ? "IPv4" : "IPv6";
  char buffer[INET6_ADDRSTRLEN + 1] = {};
  char address[kIpv6Width / 8];
  const bool fits = text.size() < sizeof(buffer);
  if (fits) std::memcpy(buffer, text.data(), text.size());
  if (!fits || inet_pton(family, buffer, address) != 1) {
    return failValue(text, std::string("is no ") + name + " address", error);
  }
  if (field.width != width) {
    return failValue(text,
                     std::string("is an ") + name + " address (" + std::to_string(width) +
                         " bits), not a value of " + bitsText(field),
                     error);
  }
  value->assign(address, width / 8);
  return true;
}

// The prefix that was meant, in the notation of `text` where the field's own is another.
std::string prefixText(std::string_view text, FieldRef field, const Bytes& value, uint32_t length) {
  std::string meant;
  if (field.width == kIpv4Width && text.find('.') != std::string_view::npos) {
    appendIpv4(value, &meant);
  } else {
    appendValue(field, value, &meant);
  }
  return meant + "/" + std::to_string(length);
}

// V/LEN, or V for the whole width. Bits beyond the prefix are a mistake in the value or in the
// length.
bool parsePrefix(std::string_view text, FieldRef field, Bytes* value, uint32_t* length,
                 std::string* error) {
  const size_t slash = text.find('/');
  Bytes given;
  if (!parseValue(text.substr(0, slash), field, &given, error)) return false;
  uint32_t bits = field.width;
  if (slash != std::string_view::npos) {
    if (!parseNumber(text.substr(slash + 1), "prefix length", &bits, error)) return false;
    if (bits > field.width) {
      *error = "prefix length " + std::to_string(bits) + " does not fit " + bitsText(field);
      return false;
    }
  }
  Bytes prefix = given;
  keepPrefix(field.width, bits, &prefix);
  if (prefix != given) {
    return failValue(
        text, "has bits beyond the prefix; " + prefixText(text, field, prefix, bits) + "?", error);
  }
  *value = std::move(prefix);
  *length = bits;
  return true;
}

bool parseLpm(std::string_view text, FieldRef field, Match* match, std::string* error) {
  Match parsed;
  uint32_t length = 0;
  if (!parsePrefix(text, field, &parsed.value, &length, error)) return false;
  parsed.prefix_length = static_cast<uint16_t>(length);
  *match = std::move(parsed);
  return true;
}

bool parseTernary(std::string_view text, FieldRef field, Match* match, std::string* error) {
  Match parsed;
  const size_t ands = text.find("&&&");
  if (text == "*") {
    parsed.value = parsed.second = Bytes(bytesOf(field.width), '\0');
  } else if (ands == std::string_view::npos) {
    uint32_t length = 0;
    if (!parsePrefix(text, field, &parsed.value, &length, error)) return false;
    parsed.second = allOnes(field.width);
    keepPrefix(field.width, length, &parsed.second);
  } else {
    if (!parseValue(text.substr(0, ands), field, &parsed.value, error)) return false;
    if (!parseValue(text.substr(ands + 3), field, &parsed.second, error)) return false;
    applyMask(parsed.second, &parsed.value);
  }
  *match = std::move(parsed);
  return true;
}

bool parseRange(std::string_view text, FieldRef field, Match* match, std::string* error) {
  Match parsed;
  if (text == "*") {
    parsed.value = Bytes(bytesOf(field.width), '\0');
    parsed.second = allOnes(field.width);
    *match = std::move(parsed);
    return true;
  }
  const size_t dots = text.find("..");
  if (!parseValue(text.substr(0, dots), field, &parsed.value, error)) return false;
  if (dots == std::string_view::npos) {
    parsed.second = parsed.value;
  } else if (!parseValue(text.substr(dots + 2), field, &parsed.second, error)) {
    return false;
  }
  if (parsed.second < parsed.value) {  // as unsigned bytes: char_traits compares them so
    *error = "range '" + std::string(text) + "' of " + std::string(field.name) +
             " ends before it begins";
    return false;
  }
  *match = std::move(parsed);
  return true;
}

bool parseOptional(std::string_view text, FieldRef field, Match* match, std::string* error) {
  Match parsed;
  parsed.valid = text != "*";
  if (!parsed.valid) {
    parsed.value = Bytes(bytesOf(field.width), '\0');
  } else if (!parseValue(text, field, &parsed.value, error)) {
    return false;
  }
  *match = std::move(parsed);
  return true;
}

bool parseExact(std::string_view text, FieldRef field, Match* match, std::string* error) {
  if (text == "*") {
    *error = std::string(field.name) + " matches exactly and needs a value, not '*'";
    return false;
  }
  Match parsed;
  if (!parseValue(text, field, &parsed.value, error)) return false;
  *match = std::move(parsed);
  return true;
}

void appendTernary(FieldRef field, const Match& match, std::string* out) {
  if (isAllZeros(match.second)) {
    out->push_back('*');
    return;
  }
  appendValue(field, match.value, out);
  if (match.second == allOnes(field.width)) return;
  out->append("&&&");
  appendValue(field, match.second, out);
}

void appendRange(FieldRef field, const Match& match, std::string* out) {
  if (isAllZeros(match.value) && match.second == allOnes(field.width)) {
    out->push_back('*');
    return;
  }
  appendValue(field, match.value, out);
  if (match.second == match.value) return;
  out->append("..");
  appendValue(field, match.second, out);
}

}  // namespace

// The first bit of a field whose width is no multiple of 8 lies within the first byte.
void keepPrefix(uint32_t width, uint32_t length, Bytes* value) {
  const uint32_t cleared = width - length;
  const size_t whole = cleared / 8;
  std::fill(value->end() - static_cast<std::ptrdiff_t>(whole), value->end(), '\0');
  if (cleared % 8 == 0) return;
  char& partial = (*value)[value->size() - 1 - whole];
  partial = static_cast<char>(partial & (0xFF << (cleared % 8)));
}

void appendValue(FieldRef field, std::string_view value, std::string* out) {
  switch (notationOf(field)) {
    case Notation::kMac:
      return appendMac(value, out);
    case Notation::kIpv4:
      return appendIpv4(value, out);
    case Notation::kIpv6:
      return appendIpv6(value, out);
    case Notation::kDecimal:
      return appendDecimal(numberOf(value), out);
    case Notation::kHex:
      return appendHex(value, out);
  }
}

void appendMatch(FieldRef field, jx_rt_key_match_type_t kind, const Match& match,
                 std::string* out) {
  switch (kind) {
    case JX_RT_MATCH_TERNARY:
      return appendTernary(field, match, out);
    case JX_RT_MATCH_RANGE:
      return appendRange(field, match, out);
    case JX_RT_MATCH_LPM:
      appendValue(field, match.value, out);
      out->push_back('/');
      return appendDecimal(match.prefix_length, out);
    case JX_RT_MATCH_OPTIONAL:
      if (!match.valid) return out->push_back('*');
      return appendValue(field, match.value, out);
    case JX_RT_MATCH_EXACT:
    case JX_RT_MATCH_INVALID:
      return appendValue(field, match.value, out);
  }
}

bool parseValue(std::string_view text, FieldRef field, Bytes* value, std::string* error) {
  if (startsWith(text, "0x") || startsWith(text, "0X")) {
    return parseHex(text, field, value, error);
  }
  if (looksLikeMac(text)) return parseMac(text, field, value, error);
  if (text.find(':') != std::string_view::npos) {
    if (field.width == kMacWidth) return failValue(text, "is no MAC address", error);
    return parseAddress(AF_INET6, text, field, value, error);
  }
  if (text.find('.') != std::string_view::npos) {
    return parseAddress(AF_INET, text, field, value, error);
  }
  return parseDecimal(text, field, value, error);
}

bool parseMatch(std::string_view text, FieldRef field, jx_rt_key_match_type_t kind, Match* match,
                std::string* error) {
  switch (kind) {
    case JX_RT_MATCH_LPM:
      return parseLpm(text, field, match, error);
    case JX_RT_MATCH_TERNARY:
      return parseTernary(text, field, match, error);
    case JX_RT_MATCH_RANGE:
      return parseRange(text, field, match, error);
    case JX_RT_MATCH_OPTIONAL:
      return parseOptional(text, field, match, error);
    case JX_RT_MATCH_EXACT:
    case JX_RT_MATCH_INVALID:
      break;
  }
  return parseExact(text, field, match, error);
}

bool parseNumber(std::string_view text, std::string_view what, uint32_t* number,
                 std::string* error) {
  const bool hex = startsWith(text, "0x") || startsWith(text, "0X");
  const std::string_view digits = hex ? text.substr(2) : text;
  const char* end = digits.data() + digits.size();
  uint32_t parsed = 0;
  const auto result = std::from_chars(digits.data(), end, parsed, hex ? 16 : 10);
  const std::string quoted = std::string(what) + " '" + std::string(text) + "'";
  if (result.ec == std::errc::invalid_argument || result.ptr != end) {
    *error = quoted + " is no number";
    return false;
  }
  if (result.ec == std::errc::result_out_of_range) {
    *error = quoted + " does not fit 32 bits";
    return false;
  }
  *number = parsed;
  return true;
}

bool parseNumberList(std::string_view text, std::string_view what, std::vector<uint32_t>* numbers,
                     std::string* error) {
  std::vector<uint32_t> parsed;
  for (size_t begin = 0; begin <= text.size();) {
    const size_t comma = std::min(text.find(',', begin), text.size());
    uint32_t number = 0;
    if (!parseNumber(text.substr(begin, comma - begin), what, &number, error)) return false;
    parsed.push_back(number);
    begin = comma + 1;
  }
  *numbers = std::move(parsed);
  return true;
}

}  // namespace jexapps
