// Numbers of the compiler's JSON: "0x0800", padded or not, of any length, possibly negative.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "model/program/json/reader.h"
#include "model/program/machine.h"

namespace jxmodel::v1model {

/// Reads a hexstr.
Number readHex(const Node& node);

Number numberOf(uint64_t value);

/// A number that is not negative and at most `max`; anything else is a failure that names `what`.
uint32_t readSmallHex(const Node& node, const char* what, uint32_t max);

/// Bits that a number needs without its sign; 0 for 0.
uint32_t bitsOf(const Number& number);

/// The value of a field of `width` bits, in bytesOf(width) bytes: negative numbers in two's
/// complement. What does not fit is a failure of `node`.
std::vector<uint8_t> bytesOfWidth(const Number& number, uint32_t width, const Node& node);
std::vector<uint8_t> readHexOfWidth(const Node& node, uint32_t width);

/// The digits of a hexstr in `bytes` bytes, zeros in front; more digits are a failure.
std::vector<uint8_t> readPaddedHex(const Node& node, size_t bytes);

/// Decimal where it is short, else hexadecimal.
std::string textOf(const Number& number);

}  // namespace jxmodel::v1model
