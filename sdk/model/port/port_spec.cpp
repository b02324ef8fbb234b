#include "model/port/port_spec.h"

#include <net/if.h>

#include <charconv>
#include <optional>

namespace jxmodel {
namespace {

bool startsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

std::optional<uint32_t> portNumber(std::string_view text) {
  uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, value);
  if (failure != std::errc() || stop != end || value >= kMaxPorts) return std::nullopt;
  return value;
}

/// Empty if it can be the name of an interface.
std::string whatIsWrongWithInterface(std::string_view name) {
  if (name.empty()) return "the name of the interface is missing";
  if (name.size() >= IFNAMSIZ) {
    return "an interface name has at most " + std::to_string(IFNAMSIZ - 1) + " characters";
  }
  if (name.find_first_of("/ \t\n:") != std::string_view::npos) {
    return "an interface name has no blank, slash or colon";
  }
  return {};
}

std::string parseInterface(std::string_view name, PortSpec* spec) {
  spec->kind = PortKind::kInterface;
  spec->interface = name;
  return whatIsWrongWithInterface(name);
}

std::string parseCapture(std::string_view files, PortSpec* spec) {
  const size_t comma = files.find(',');
  spec->kind = PortKind::kCapture;
  spec->input = files.substr(0, comma);
  if (comma != std::string_view::npos) spec->output = files.substr(comma + 1);
  if (spec->output.find(',') != std::string::npos) return "more than two capture files";
  if (comma != std::string_view::npos && spec->output.empty()) {
    return "the name of the capture file to write is missing behind the comma";
  }
  if (spec->input.empty() && spec->output.empty()) return "the name of the capture file is missing";
  return {};
}

std::string parse(std::string_view text, PortSpec* spec) {
  const size_t equals = text.find('=');
  if (equals == std::string_view::npos) return "no '=' behind the port number";
  const std::string_view number = text.substr(0, equals);
  const std::optional<uint32_t> parsed = portNumber(number);
  if (!parsed) {
    return "`" + std::string(number) + "` is no port number (0 to " +
           std::to_string(kMaxPorts - 1) + ")";
  }
  spec->number = *parsed;
  const std::string_view way = text.substr(equals + 1);
  if (startsWith(way, "if:")) return parseInterface(way.substr(3), spec);
  if (startsWith(way, "pcap:")) return parseCapture(way.substr(5), spec);
  return "`" + std::string(way) + "` begins neither with `if:` nor with `pcap:`";
}

}  // namespace

bool parsePortSpec(std::string_view text, PortSpec* spec, std::string* error) {
  PortSpec parsed;
  const std::string wrong = parse(text, &parsed);
  if (!wrong.empty()) {
    *error =
        "port `" + std::string(text) + "`: " + wrong + "; expected N=if:NAME or N=pcap:IN[,OUT]";
    return false;
  }
  *spec = std::move(parsed);
  return true;
}

std::string toString(const PortSpec& spec) {
  const std::string number = std::to_string(spec.number) + "=";
  if (spec.kind == PortKind::kInterface) return number + "if:" + spec.interface;
  return number + "pcap:" + spec.input + (spec.output.empty() ? "" : "," + spec.output);
}

}  // namespace jxmodel
