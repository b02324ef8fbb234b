// What a person writes to say where a port of the switch leads:
//
//   N=if:NAME           a network interface
//   N=pcap:IN           a capture file to read; what is sent is counted and thrown away
//   N=pcap:IN,OUT       the same, with a capture file to write
//   N=pcap:,OUT         only a file to write
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace jxmodel {

/// Ports are numbered as packets see them, in a field of nine bits.
inline constexpr uint32_t kMaxPorts = 512;

enum class PortKind : uint8_t { kInterface, kCapture };

struct PortSpec {
  uint32_t number = 0;
  PortKind kind = PortKind::kCapture;
  std::string interface;  // kInterface: its name
  std::string input;      // kCapture: file to read, may be empty
  std::string output;     // kCapture: file to write, may be empty
};

/// False, with *error saying what is wrong where, if `text` is none of the above. *spec is then
/// unchanged.
bool parsePortSpec(std::string_view text, PortSpec* spec, std::string* error);

/// The text that would be parsed to `spec`.
std::string toString(const PortSpec& spec);

}  // namespace jxmodel
