#include "render_settings.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "setup_requests.h"

namespace switchctl {
namespace {

namespace pb = jx::control::v1;
using SettingsJson = nlohmann::ordered_json;
using Rows = std::vector<std::vector<std::string>>;

std::string join(const google::protobuf::RepeatedField<uint32_t>& numbers) {
  std::string out;
  for (const uint32_t number : numbers) out += (out.empty() ? "" : ",") + std::to_string(number);
  return out.empty() ? "-" : out;
}

SettingsJson listOf(const google::protobuf::RepeatedField<uint32_t>& numbers) {
  return std::vector<uint32_t>(numbers.begin(), numbers.end());
}

bool isZeroCell(const pb::ReadCellsReply::Cell& cell) {
  const std::string& value = cell.register_value();
  return !cell.has_rates() &&
         std::all_of(value.begin(), value.end(), [](char byte) { return byte == 0; });
}

SettingsJson jsonOf(const pb::MeterRate& rate) {
  return {{"per_second", rate.per_second()}, {"burst", rate.burst()}};
}

const char* unitOf(bool bytes) { return bytes ? "bytes" : "packets"; }

}  // namespace

std::string renderRegisters(const pb::ProgramDescription& program, Format format) {
  SettingsJson json = SettingsJson::array();
  Rows rows = {{"REGISTER", "SIZE", "BITS"}};
  for (const auto& reg : program.registers()) {
    json.push_back({{"register", reg.name()}, {"size", reg.size()}, {"bits", reg.width()}});
    rows.push_back({reg.name(), std::to_string(reg.size()), std::to_string(reg.width())});
  }
  return format == Format::kJson ? jsonLine(json) : renderColumns(rows);
}

std::string renderMeters(const pb::ProgramDescription& program, Format format) {
  SettingsJson json = SettingsJson::array();
  Rows rows = {{"METER", "SIZE", "COUNTS"}};
  for (const auto& meter : program.meters()) {
    const char* const unit = unitOf(meter.counts_bytes());
    json.push_back({{"meter", meter.name()}, {"size", meter.size()}, {"counts", unit}});
    rows.push_back({meter.name(), std::to_string(meter.size()), unit});
  }
  return format == Format::kJson ? jsonLine(json) : renderColumns(rows);
}

std::string renderCells(const pb::ReadCellsReply& reply, bool counts_bytes, uint32_t first,
                        bool non_zero, Format format) {
  std::string out;
  for (int i = 0; i < reply.cells_size(); ++i) {
    const pb::ReadCellsReply::Cell& cell = reply.cells(i);
    if (non_zero && isZeroCell(cell)) continue;
    const uint32_t index = first + static_cast<uint32_t>(i);
    const bool is_register = !cell.register_value().empty();
    if (format == Format::kText) {
      out += std::to_string(index) + ' ' +
             (is_register ? stf::valueText(cell.register_value())
                          : stf::ratesText(cell, counts_bytes)) +
             '\n';
      continue;
    }
    SettingsJson json = {{"index", index}};
    if (is_register) json["value"] = stf::valueText(cell.register_value());
    if (!is_register) json["committed"] = nullptr;
    if (!is_register) json["peak"] = nullptr;
    if (cell.has_rates()) json["committed"] = jsonOf(cell.rates().committed());
    if (cell.has_rates()) json["peak"] = jsonOf(cell.rates().peak());
    out += jsonLine(json);
  }
  return out;
}

std::string renderValueSets(const pb::SettingsReply& reply, Format format) {
  SettingsJson json = SettingsJson::array();
  std::string text;
  for (const auto& set : reply.value_sets()) {
    SettingsJson members = SettingsJson::array();
    text += set.name() + ": " + std::to_string(set.members_size()) + " of " +
            std::to_string(set.size()) + ", " + std::to_string(set.width()) + " bits\n";
    for (const auto& member : set.members()) {
      const std::string value = stf::valueText(member.value());
      const std::string mask = stf::valueText(member.mask());
      members.push_back({{"value", value}, {"mask", mask}});
      text.append("  ").append(value).append(" &&& ").append(mask) += '\n';
    }
    json.push_back({{"value_set", set.name()},
                    {"size", set.size()},
                    {"bits", set.width()},
                    {"members", members}});
  }
  return format == Format::kJson ? jsonLine(json) : text;
}

std::string renderMulticast(const pb::SettingsReply& reply, Format format) {
  SettingsJson nodes = SettingsJson::array();
  SettingsJson groups = SettingsJson::array();
  std::string text;
  for (const auto& group : reply.groups()) {
    groups.push_back({{"group", group.id()}, {"nodes", listOf(group.nodes())}});
    text += "group " + std::to_string(group.id()) + " nodes " + join(group.nodes()) + '\n';
  }
  for (int i = 0; i < reply.nodes_size(); ++i) {
    const auto& node = reply.nodes(i);
    nodes.push_back({{"node", i}, {"rid", node.rid()}, {"ports", listOf(node.ports())}});
    text += "node " + std::to_string(i) + " rid " + std::to_string(node.rid()) + " ports " +
            join(node.ports()) + '\n';
  }
  if (format == Format::kText) return text;
  return jsonLine({{"groups", groups}, {"nodes", nodes}});
}

std::string renderClones(const pb::SettingsReply& reply, Format format) {
  SettingsJson json = SettingsJson::array();
  Rows rows = {{"SESSION", "PORT", "GROUP"}};
  for (const auto& session : reply.sessions()) {
    SettingsJson line = {{"session", session.id()}};
    if (session.has_port()) line["port"] = session.port();
    if (session.has_group()) line["group"] = session.group();
    json.push_back(line);
    rows.push_back({std::to_string(session.id()),
                    session.has_port() ? std::to_string(session.port()) : "-",
                    session.has_group() ? std::to_string(session.group()) : "-"});
  }
  return format == Format::kJson ? jsonLine(json) : renderColumns(rows);
}

std::string renderRun(const std::string& file, const stf::Run& run, Format format) {
  if (format == Format::kJson) {
    const auto list = [](const std::vector<stf::Difference>& lines) {
      SettingsJson out = SettingsJson::array();
      for (const auto& line : lines) out.push_back({{"line", line.line}, {"text", line.text}});
      return out;
    };
    return jsonLine({{"file", file},
                     {"as_expected", run.differences.empty()},
                     {"packets_in", run.packets_in},
                     {"packets_out", run.packets_out},
                     {"readings", list(run.readings)},
                     {"differences", list(run.differences)}});
  }
  std::string out;
  const auto add = [&](const std::vector<stf::Difference>& lines) {
    for (const auto& line : lines)
      out += file + ':' + std::to_string(line.line) + ": " + line.text + '\n';
  };
  add(run.readings);
  add(run.differences);
  if (!run.differences.empty()) return out;
  return out + file + ": as expected, " + std::to_string(run.packets_in) + " packets in, " +
         std::to_string(run.packets_out) + " out\n";
}

}  // namespace switchctl
