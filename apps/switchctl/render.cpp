#include "render.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace switchctl {
namespace {

namespace pb = jx::control::v1;
using Json = nlohmann::ordered_json;

std::string jsonLine(const Json& json) { return json.dump() + '\n'; }

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

/// Columns of text, as wide as their widest cell; the first row is the heading.
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

std::string hex(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", value);
  return text;
}

jexapps::FieldRef fieldOf(const std::string& name, uint32_t width) { return {name, width}; }

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

}  // namespace

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

std::string renderCount(const std::string& table, uint64_t entries, Format format) {
  if (format == Format::kJson) return jsonLine(Json{{"table", table}, {"entries", entries}});
  return std::to_string(entries) + '\n';
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
