// Values of fields as people write them and as tables hold them.
//
// A value is the (width + 7) / 8 bytes of its field in network byte order, unused high bits 0.
//
// How a value is written depends on the field alone, so the same field always reads the same:
//   48 bits                          02:00:00:00:00:01
//   32 bits, header ipv4 or arp      10.0.0.1
//   128 bits                         2001:db8::1
//   any other, up to 64 bits         decimal
//   any other, beyond                0x and hexadecimal
// Read are all of these, and 0x for any field; every text that is written is read back as the
// same value.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "jxsdk/rt.h"

namespace jexapps {

/// Raw bytes. Short ones (nearly all values) live without an allocation.
using Bytes = std::string;

/// What is to be known about a field to read and write its values.
struct FieldRef {
  std::string_view name;
  uint32_t width = 0;  // bits
};

/// What one key field of an entry matches. Of `value` and `second`, the match kind says which
/// hold: exact value; ternary value and mask; range low and high; LPM value and prefix_length;
/// optional value, if `valid`.
struct Match {
  Bytes value;
  Bytes second;
  uint16_t prefix_length = 0;
  bool valid = true;
};

/// Clears the bits of a value of `width` bits behind its first `length` ones.
void keepPrefix(uint32_t width, uint32_t length, Bytes* value);

constexpr uint32_t bytesOf(uint32_t width) { return (width + 7) / 8; }

inline const uint8_t* rawBytes(const Bytes& bytes) {
  return reinterpret_cast<const uint8_t*>(bytes.data());
}

// ---- writing

void appendValue(FieldRef field, std::string_view value, std::string* out);

/// As parseMatch reads it: V, V/LEN, V&&&M, LO..HI, and * for what matches anything.
void appendMatch(FieldRef field, jx_rt_key_match_type_t kind, const Match& match, std::string* out);

// ---- reading
//
// False with *error set to a sentence that names text, field and reason; outputs then keep what
// they held.

bool parseValue(std::string_view text, FieldRef field, Bytes* value, std::string* error);

/// exact V; LPM V/LEN or V; ternary V&&&M, V/LEN, V or *; range LO..HI, V or *; optional V or *.
/// Bits of a value outside its mask are cleared, as tables store it. Bits beyond a prefix are an
/// error.
bool parseMatch(std::string_view text, FieldRef field, jx_rt_key_match_type_t kind, Match* match,
                std::string* error);

/// An unsigned number of up to 32 bits, decimal or 0x: ids, priorities, times.
bool parseNumber(std::string_view text, std::string_view what, uint32_t* number,
                 std::string* error);

/// Ids separated by commas, at least one.
bool parseNumberList(std::string_view text, std::string_view what, std::vector<uint32_t>* numbers,
                     std::string* error);

}  // namespace jexapps
