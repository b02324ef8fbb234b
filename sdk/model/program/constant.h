// Constants of a program description: text to bytes of a given width.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace jxmodel {

enum class ConstantStatus : uint8_t { kOk, kMalformed, kTooWide };

/// Reads `text`, in decimal, 0x, MAC (six groups of two digits), IPv4 or IPv6 form, as a number of
/// `width` bits into `*bytes`: bytesOf(width) bytes in network byte order, padded at the front.
/// `*bytes` is unspecified unless the result is kOk.
ConstantStatus parseConstant(const std::string& text, uint32_t width, std::vector<uint8_t>* bytes);

}  // namespace jxmodel
