#include "entry.h"

#include <algorithm>
#include <charconv>

namespace jexapps {
namespace {

constexpr char kSortEntry = 0;
constexpr char kSortDefault = 1;
constexpr char kSortFallback = 2;
constexpr size_t kPieceSize = 1 << 16;  // bytes handed to a sink at once

void appendNumber(uint64_t number, std::string* out) {
  char digits[20];
  const auto end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
  out->append(digits, end);
}

std::vector<GroupMember> sortedMembers(const EntryView& entry) {
  std::vector<GroupMember> members = entry.members;
  std::sort(members.begin(), members.end(),
            [](const GroupMember& a, const GroupMember& b) { return a.member < b.member; });
  return members;
}

// Members of one JSON object: names are this file's own and need no escaping.
class JsonObject {
 public:
  explicit JsonObject(std::string* out) : out_(out) { out_->push_back('{'); }
  ~JsonObject() { out_->push_back('}'); }
  JsonObject(const JsonObject&) = delete;
  JsonObject& operator=(const JsonObject&) = delete;

  std::string* name(std::string_view name) {
    separate();
    out_->push_back('"');
    out_->append(name).append("\":");
    return out_;
  }
  // The name of a field or parameter, which a program's author chose.
  std::string* foreignName(std::string_view name) {
    separate();
    appendJsonString(name, out_);
    out_->push_back(':');
    return out_;
  }
  void number(std::string_view name_of, uint64_t value) { appendNumber(value, name(name_of)); }
  void number(std::string_view name_of, const std::optional<uint32_t>& value) {
    if (value) number(name_of, *value);
  }
  void truth(std::string_view name_of, bool value) {
    name(name_of)->append(value ? "true" : "false");
  }

 private:
  void separate() {
    if (!first_) out_->push_back(',');
    first_ = false;
  }
  std::string* out_;
  bool first_ = true;
};

// Values as value.h writes them consist of digits, letters and .:/*&: nothing to escape.
void appendJsonKey(const EntryView& entry, std::string* out) {
  JsonObject object(out);
  for (const KeyFieldView& field : entry.key) {
    object.foreignName(field.field.name)->push_back('"');
    appendMatch(field.field, field.kind, field.match, out);
    out->push_back('"');
  }
}

void appendJsonParams(const EntryView& entry, std::string* out) {
  JsonObject object(out);
  for (const ParamView& param : entry.params) {
    object.foreignName(param.field.name)->push_back('"');
    appendValue(param.field, param.value, out);
    out->push_back('"');
  }
}

void appendJsonMembers(const EntryView& entry, std::string* out) {
  out->push_back('[');
  bool first = true;
  for (const GroupMember& member : sortedMembers(entry)) {
    if (!first) out->push_back(',');
    first = false;
    JsonObject object(out);
    object.number("member", member.member);
    object.truth("active", member.active);
  }
  out->push_back(']');
}

void appendTextNumber(std::string_view name, const std::optional<uint32_t>& value,
                      std::string* out) {
  if (!value) return;
  out->append(" ").append(name).push_back('=');
  appendNumber(*value, out);
}

void appendTextHead(const EntryView& entry, std::string* out) {
  if (entry.kind == EntryKind::kDefault) {
    out->append("default");
    return;
  }
  if (entry.kind == EntryKind::kFallback) {
    out->append("fallback");
    return;
  }
  out->push_back('#');
  appendNumber(entry.handle, out);
  for (const KeyFieldView& field : entry.key) {
    out->append(" ").append(field.field.name).push_back('=');
    appendMatch(field.field, field.kind, field.match, out);
  }
}

void appendTextMembers(const EntryView& entry, std::string* out) {
  if (!entry.max_members) return;
  out->append(" members=");
  bool first = true;
  for (const GroupMember& member : sortedMembers(entry)) {
    if (!first) out->push_back(',');
    first = false;
    appendNumber(member.member, out);
    if (!member.active) out->append("(inactive)");
  }
}

void appendPackedKey(const EntryView& entry, std::string* out) {
  for (const KeyFieldView& field : entry.key) {
    out->append(field.match.value);
    switch (field.kind) {
      case JX_RT_MATCH_TERNARY:
      case JX_RT_MATCH_RANGE:
        out->append(field.match.second);
        break;
      case JX_RT_MATCH_LPM:
        out->push_back(static_cast<char>(field.match.prefix_length >> 8));
        out->push_back(static_cast<char>(field.match.prefix_length & 0xFF));
        break;
      case JX_RT_MATCH_OPTIONAL:
        out->push_back(field.match.valid ? 1 : 0);
        break;
      case JX_RT_MATCH_EXACT:
      case JX_RT_MATCH_INVALID:
        break;
    }
  }
}

}  // namespace

void appendJsonString(std::string_view text, std::string* out) {
  static constexpr char kHexDigits[] = "0123456789abcdef";
  out->push_back('"');
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out->push_back('\\');
      out->push_back(c);
    } else if (static_cast<uint8_t>(c) < 0x20) {
      out->append("\\u00");
      out->push_back(kHexDigits[c >> 4]);
      out->push_back(kHexDigits[c & 0xF]);
    } else {
      out->push_back(c);
    }
  }
  out->push_back('"');
}

void appendJson(const EntryView& entry, std::string* out) {
  JsonObject object(out);
  switch (entry.kind) {
    case EntryKind::kEntry:
      object.number("handle", entry.handle);
      appendJsonKey(entry, object.name("key"));
      break;
    case EntryKind::kDefault:
      object.truth("default", true);
      break;
    case EntryKind::kFallback:
      object.truth("fallback", true);
      break;
  }
  object.number("priority", entry.priority);
  if (!entry.action.empty()) {
    appendJsonString(entry.action, object.name("action"));
    appendJsonParams(entry, object.name("params"));
  }
  object.number("member", entry.member);
  object.number("group", entry.group);
  object.number("max", entry.max_members);
  if (entry.max_members) appendJsonMembers(entry, object.name("members"));
  if (entry.counters) {
    object.number("packets", entry.counters->packets);
    object.number("bytes", entry.counters->bytes);
  }
  object.number("ttl", entry.ttl_ms);
}

void appendText(const EntryView& entry, std::string* out) {
  appendTextHead(entry, out);
  appendTextNumber("priority", entry.priority, out);
  if (!entry.action.empty() || entry.member || entry.group) out->append(" ->");
  if (!entry.action.empty()) out->append(" ").append(entry.action);
  for (const ParamView& param : entry.params) {
    out->append(" ").append(param.field.name).push_back('=');
    appendValue(param.field, param.value, out);
  }
  appendTextNumber("member", entry.member, out);
  appendTextNumber("group", entry.group, out);
  appendTextNumber("max", entry.max_members, out);
  appendTextMembers(entry, out);
  if (entry.counters) {
    out->append(" packets=");
    appendNumber(entry.counters->packets, out);
    out->append(" bytes=");
    appendNumber(entry.counters->bytes, out);
  }
  appendTextNumber("ttl", entry.ttl_ms, out);
}

void appendSortKey(const EntryView& entry, std::string* out) {
  switch (entry.kind) {
    case EntryKind::kEntry:
      out->push_back(kSortEntry);
      return appendPackedKey(entry, out);
    case EntryKind::kDefault:
      return out->push_back(kSortDefault);
    case EntryKind::kFallback:
      return out->push_back(kSortFallback);
  }
}

void Dump::add(const EntryView& entry) {
  if (entry.kind == EntryKind::kEntry) ++entries_;
  const size_t begin = text_.size();
  appendSortKey(entry, &text_);
  const size_t line = text_.size();
  format_ == DumpFormat::kJson ? appendJson(entry, &text_) : appendText(entry, &text_);
  text_.push_back('\n');
  lines_.push_back(
      {begin, static_cast<uint32_t>(line - begin), static_cast<uint32_t>(text_.size() - line)});
}

void Dump::write(const std::function<void(std::string_view piece)>& sink) {
  const auto sort_key = [this](const Line& line) {
    return std::string_view(text_).substr(line.begin, line.key_length);
  };
  std::sort(lines_.begin(), lines_.end(),
            [&](const Line& a, const Line& b) { return sort_key(a) < sort_key(b); });
  std::string piece;
  for (const Line& line : lines_) {
    piece.append(text_, line.begin + line.key_length, line.length);
    if (piece.size() < kPieceSize) continue;
    sink(piece);
    piece.clear();
  }
  if (!piece.empty()) sink(piece);
}

}  // namespace jexapps
