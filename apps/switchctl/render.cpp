#include "render.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace switchctl {
namespace {

namespace pb = jx::control::v1;
using Json = nlohmann::ordered_json;

/// The names that other programs of this project print too.
const char* kindName(pb::TableKind kind) {
  switch (kind) {
    case pb::TABLE_KIND_MATCH_DIRECT:
      return "match_direct";
    case pb::TABLE_KIND_MATCH_ACTION_DATA:
      return "match_action_data";
    case pb::TABLE_KIND_MATCH_SELECTOR:
      return "match_selector";
    case pb::TABLE_KIND_ACTION_DATA:
      return "action_data";
    case pb::TABLE_KIND_SELECTOR:
      return "selector";
    case pb::TABLE_KIND_COUNTER:
      return "counter";
    default:
      return "unknown";
  }
}

std::string hex(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", value);
  return text;
}

jexapps::FieldRef fieldOf(const std::string& name, uint32_t width) { return {name, width}; }

jexapps::EntryKind kindOf(pb::Entry::Role role) {
  switch (role) {
    case pb::Entry::ROLE_DEFAULT:
      return jexapps::EntryKind::kDefault;
    case pb::Entry::ROLE_FALLBACK:
      return jexapps::EntryKind::kFallback;
    default:
      return jexapps::EntryKind::kEntry;
  }
}

Json jsonOf(const pb::Port& port) {
  const char* input = nullptr;
  switch (port.input()) {
    case pb::Port::INPUT_READING:
      input = "reading";
      break;
    case pb::Port::INPUT_EXHAUSTED:
      input = "exhausted";
      break;
    case pb::Port::INPUT_FAILED:
      input = "failed";
      break;
    default:
      input = "none";
  }
  return {{"device", port.device()},
          {"port", port.number()},
          {"spec", port.spec()},
          {"enabled", port.enabled()},
          {"link", port.enabled() && port.carrier()},
          {"input", input},
          {"error", port.error()},
          {"packets_in", port.packets_in()},
          {"bytes_in", port.bytes_in()},
          {"packets_out", port.packets_out()},
          {"bytes_out", port.bytes_out()},
          {"dropped_in", port.dropped_in()},
          {"dropped_out", port.dropped_out()},
          {"receive_errors", port.receive_errors()},
          {"send_errors", port.send_errors()}};
}

Json jsonOf(const pb::PacketCounts& counts) {
  Json reasons = Json::object();
  for (const auto& reason : counts.drop_reasons()) reasons[reason.reason()] = reason.packets();
  Json json = {{"program", counts.program()},
               {"received", counts.received()},
               {"received_bytes", counts.received_bytes()},
               {"forwarded", counts.forwarded()},
               {"flooded", counts.flooded()},
               {"dropped", counts.dropped()},
               {"drop_reasons", reasons},
               {"sent_nowhere", counts.sent_nowhere()},
               {"bad_counter_indices", counts.bad_counter_indices()}};
  for (const auto& happened : counts.happened()) {
    json["happened"][happened.what()] = happened.times();
  }
  return json;
}

const char* linkOf(const pb::Port& port) {
  if (!port.enabled()) return "set down";
  return port.carrier() ? "up" : "no carrier";
}

std::string summaryOf(const pb::PacketCounts& counts) {
  const auto number = [](uint64_t value) { return std::to_string(value); };
  std::string text = counts.program().empty() ? std::string("no program for packets")
                                              : "program " + counts.program();
  text += ": " + number(counts.received()) + " received, " + number(counts.forwarded()) +
          " forwarded, " + number(counts.flooded()) + " flooded, " + number(counts.dropped()) +
          " dropped\n";
  for (const auto& reason : counts.drop_reasons()) {
    text += "  " + number(reason.packets()) + " dropped: " + reason.reason() + '\n';
  }
  if (counts.sent_nowhere() != 0) {
    text += "  " + number(counts.sent_nowhere()) + " forwarded to a port that is not attached\n";
  }
  if (counts.bad_counter_indices() != 0) {
    text += "  " + number(counts.bad_counter_indices()) + " counts beyond the end of a table\n";
  }
  for (const auto& happened : counts.happened()) {
    text += "  " + number(happened.times()) + " times: " + happened.what() + '\n';
  }
  return text;
}

}  // namespace

std::string renderColumns(const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths(rows.front().size());
  for (const auto& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string out;
  for (const auto& row : rows) {
    for (size_t i = 0; i + 1 < row.size(); ++i) {
      out += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
    }
    out += row.back() + '\n';
  }
  return out;
}

std::string jsonLine(const Json& json) {
  // Names of files need not be UTF-8, which JSON is: what is not is replaced.
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::string renderHealth(const std::string& status, Format format) {
  if (format == Format::kJson) return jsonLine(Json{{"status", status}});
  return status + '\n';
}

std::string renderPrograms(const std::vector<pb::Program>& programs, Format format) {
  if (format == Format::kJson) {
    Json list = Json::array();
    for (const pb::Program& program : programs) {
      list.push_back({{"device", program.device()},
                      {"virtual", program.device_is_virtual()},
                      {"program", program.name()},
                      {"tables", program.tables()}});
    }
    return jsonLine(list);
  }
  std::vector<std::vector<std::string>> rows{{"DEVICE", "", "PROGRAM", "TABLES"}};
  for (const pb::Program& program : programs) {
    rows.push_back({std::to_string(program.device()),
                    program.device_is_virtual() ? "virtual" : "physical", program.name(),
                    std::to_string(program.tables())});
  }
  return renderColumns(rows);
}

std::string renderTables(const std::vector<pb::Table>& tables, Format format) {
  if (format == Format::kJson) {
    Json list = Json::array();
    for (const pb::Table& table : tables) {
      list.push_back({{"device", table.device()},
                      {"program", table.program()},
                      {"name", table.name()},
                      {"id", table.id()},
                      {"handle", table.handle()},
                      {"kind", kindName(table.kind())},
                      {"size", table.size()},
                      {"entries", table.entries()}});
    }
    return jsonLine(list);
  }
  std::vector<std::vector<std::string>> rows{
      {"DEVICE", "PROGRAM", "TABLE", "ID", "HANDLE", "KIND", "SIZE", "ENTRIES"}};
  for (const pb::Table& table : tables) {
    rows.push_back({std::to_string(table.device()), table.program(), table.name(),
                    std::to_string(table.id()), hex(table.handle()), kindName(table.kind()),
                    std::to_string(table.size()), std::to_string(table.entries())});
  }
  return renderColumns(rows);
}

std::string renderDigests(const std::vector<pb::Digest>& digests, Format format) {
  if (format == Format::kJson) {
    Json list = Json::array();
    for (const pb::Digest& digest : digests) {
      list.push_back({{"device", digest.device()},
                      {"program", digest.program()},
                      {"name", digest.name()},
                      {"id", digest.id()},
                      {"armed", digest.armed()}});
    }
    return jsonLine(list);
  }
  std::vector<std::vector<std::string>> rows{{"DEVICE", "PROGRAM", "DIGEST", "ID", "ARMED"}};
  for (const pb::Digest& digest : digests) {
    rows.push_back({std::to_string(digest.device()), digest.program(), digest.name(),
                    std::to_string(digest.id()), digest.armed() ? "yes" : "no"});
  }
  return renderColumns(rows);
}

std::string renderCount(const std::string& table, uint64_t entries, Format format) {
  if (format == Format::kJson) return jsonLine(Json{{"table", table}, {"entries", entries}});
  return std::to_string(entries) + '\n';
}

std::string renderPorts(const pb::ListPortsReply& reply, Format format) {
  if (format == Format::kJson) {
    Json list = Json::array();
    for (const pb::Port& port : reply.ports()) list.push_back(jsonOf(port));
    return jsonLine(Json{{"ports", list}, {"packets", jsonOf(reply.packets())}});
  }
  std::vector<std::vector<std::string>> rows{
      {"PORT", "LINK", "IN", "BYTES", "OUT", "BYTES", "DROPPED", "ERRORS", "SPEC"}};
  std::string errors;
  for (const pb::Port& port : reply.ports()) {
    rows.push_back({std::to_string(port.number()), linkOf(port), std::to_string(port.packets_in()),
                    std::to_string(port.bytes_in()), std::to_string(port.packets_out()),
                    std::to_string(port.bytes_out()),
                    std::to_string(port.dropped_in() + port.dropped_out()),
                    std::to_string(port.receive_errors() + port.send_errors()), port.spec()});
    if (!port.error().empty()) {
      errors += "port " + std::to_string(port.number()) + ": " + port.error() + '\n';
    }
  }
  return renderColumns(rows) + errors + summaryOf(reply.packets());
}

std::string renderPort(const pb::Port& port, const std::string& what, Format format) {
  if (format == Format::kJson) return jsonLine(jsonOf(port));
  return "port " + std::to_string(port.number()) + ' ' + what + " (" + port.spec() + ")\n";
}

std::string renderInjected(const pb::InjectReply& reply, Format format) {
  if (format == Format::kJson) {
    return jsonLine(Json{{"packets", reply.packets()}, {"bytes", reply.bytes()}});
  }
  return std::to_string(reply.packets()) + " packets, " + std::to_string(reply.bytes()) +
         " bytes\n";
}

std::string renderCaptured(uint64_t packets, uint64_t lost, Format format) {
  if (format == Format::kJson) return jsonLine(Json{{"packets", packets}, {"lost", lost}});
  return std::to_string(packets) + " packets" +
         (lost != 0 ? ", " + std::to_string(lost) + " lost" : "") + '\n';
}

std::string renderTraced(const pb::TracedPacket& packet, Format format) {
  if (format == Format::kJson) {
    Json json{
        {"packet", packet.number()}, {"time_ns", packet.time_ns()}, {"length", packet.length()}};
    json.update(Json::parse(packet.json()));
    return jsonLine(json);
  }
  return "packet " + std::to_string(packet.number()) + ", " + std::to_string(packet.length()) +
         " bytes, " + packet.text() + '\n';
}

void toView(const pb::KeyField& field, jexapps::KeyFieldView* view) {
  view->field = fieldOf(field.name(), field.width());
  jexapps::Match& match = view->match;
  switch (field.match_case()) {
    case pb::KeyField::kExact:
      view->kind = JX_RT_MATCH_EXACT;
      match.value = field.exact();
      break;
    case pb::KeyField::kTernary:
      view->kind = JX_RT_MATCH_TERNARY;
      match.value = field.ternary().value();
      match.second = field.ternary().mask();
      break;
    case pb::KeyField::kLpm:
      view->kind = JX_RT_MATCH_LPM;
      match.value = field.lpm().value();
      match.prefix_length = static_cast<uint16_t>(field.lpm().prefix_length());
      break;
    case pb::KeyField::kRange:
      view->kind = JX_RT_MATCH_RANGE;
      match.value = field.range().low();
      match.second = field.range().high();
      break;
    case pb::KeyField::kOptional:
      view->kind = JX_RT_MATCH_OPTIONAL;
      match.value = field.optional().value();
      match.valid = field.optional().valid();
      break;
    case pb::KeyField::MATCH_NOT_SET:
      view->kind = JX_RT_MATCH_INVALID;
      break;
  }
}

void toView(const pb::Entry& entry, jexapps::EntryView* view) {
  view->kind = kindOf(entry.role());
  view->handle = entry.handle();
  view->key.resize(static_cast<size_t>(entry.key_size()));
  for (int i = 0; i < entry.key_size(); ++i) toView(entry.key(i), &view->key[i]);
  view->priority = entry.has_priority() ? std::optional(entry.priority()) : std::nullopt;
  view->action = entry.action();
  view->params.resize(static_cast<size_t>(entry.params_size()));
  for (int i = 0; i < entry.params_size(); ++i) {
    const pb::Param& param = entry.params(i);
    view->params[i] = {fieldOf(param.name(), param.width()), param.value()};
  }
  view->member = entry.has_member_id() ? std::optional(entry.member_id()) : std::nullopt;
  view->group = entry.has_group_id() ? std::optional(entry.group_id()) : std::nullopt;
  view->max_members = std::nullopt;
  view->members.clear();
  if (entry.has_group()) {
    view->max_members = entry.group().max_members();
    for (const pb::Group::Member& member : entry.group().members()) {
      view->members.push_back({member.member_id(), member.active()});
    }
  }
  view->counters = std::nullopt;
  if (entry.has_counter()) view->counters = {entry.counter().packets(), entry.counter().bytes()};
  // A dump does not show that an entry does not age.
  view->ttl_ms = entry.ttl_ms() != 0 ? std::optional(entry.ttl_ms()) : std::nullopt;
}

}  // namespace switchctl
