#include "model/program/p4info/document.h"

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <cstdio>
#include <set>

#include "model/program/load_failure.h"

namespace jxmodel::p4info {
namespace {

constexpr int kMaxNesting = 100;  // messages in one another

std::string placeAt(int line, int column) {
  // The parser counts from 0.
  return "line " + std::to_string(line + 1) + ", column " + std::to_string(column + 1);
}

// Keeps the first error; warnings are about fields that are skipped.
class FirstError final : public google::protobuf::io::ErrorCollector {
 public:
  void AddError(int line, google::protobuf::io::ColumnNumber column,
                const std::string& message) override {
    if (!failure.reason.empty()) return;
    failure = {line < 0 ? "" : placeAt(line, column), message};
  }
  void AddWarning(int, google::protobuf::io::ColumnNumber, const std::string&) override {}

  LoadFailure failure;
};

std::string hexId(uint32_t id) {
  char text[11];
  std::snprintf(text, sizeof text, "0x%08x", id);
  return text;
}

/// The text without the semicolons and commas that may stand behind a field: the parser takes none
/// behind a field that it does not know. Commas of lists stay; nothing moves.
std::string withoutSeparators(std::string_view text) {
  std::string plain(text);
  int list_depth = 0;
  char quote = 0;
  for (size_t i = 0; i < plain.size(); ++i) {
    const char c = plain[i];
    if (quote != 0) {
      if (c == '\\') {
        ++i;
      } else if (c == quote || c == '\n') {
        quote = 0;
      }
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '#') {
      i = plain.find('\n', i);
      if (i == std::string::npos) break;
    } else if (c == '[') {
      ++list_depth;
    } else if (c == ']') {
      --list_depth;
    } else if (c == ';' || (c == ',' && list_depth == 0)) {
      plain[i] = ' ';
    }
  }
  return plain;
}

}  // namespace

Document::Document(std::string_view text) {
  parse(text);
  addIds("actions", "action", IdKind::kAction, info_.actions());
  addIds("tables", "table", IdKind::kTable, info_.tables());
  addIds("value_sets", "value set", IdKind::kValueSet, info_.value_sets());
  addIds("controller_packet_metadata", "controller header", IdKind::kControllerHeader,
         info_.controller_packet_metadata());
  addIds("action_profiles", "action profile", IdKind::kProfile, info_.action_profiles());
  addIds("counters", "counter", IdKind::kCounter, info_.counters());
  addIds("direct_counters", "direct counter", IdKind::kDirectCounter, info_.direct_counters());
  addIds("meters", "meter", IdKind::kMeter, info_.meters());
  addIds("direct_meters", "direct meter", IdKind::kDirectMeter, info_.direct_meters());
  addIds("registers", "register", IdKind::kRegister, info_.registers());
  addIds("digests", "digest", IdKind::kDigest, info_.digests());
  checkReferences();
}

void Document::parse(std::string_view text) {
  FirstError errors;
  google::protobuf::TextFormat::Parser parser;
  parser.AllowUnknownField(true);
  parser.AllowUnknownExtension(true);
  parser.SetRecursionLimit(kMaxNesting);
  parser.RecordErrorsTo(&errors);
  parser.WriteLocationsTo(&places_);
  const std::string plain = withoutSeparators(text);
  google::protobuf::io::ArrayInputStream stream(plain.data(), static_cast<int>(plain.size()));
  if (!parser.Parse(&stream, &info_)) throw errors.failure;
}

std::string Document::placeOf(const char* list, int index) const {
  const auto* const field = P4Info::descriptor()->FindFieldByName(list);
  const auto location = places_.GetLocation(field, index);
  return placeAt(location.line, location.column);
}

template <typename List>
void Document::addIds(const char* list_name, const char* what, IdKind kind, const List& list) {
  std::set<std::string> names;
  for (int i = 0; i < list.size(); ++i) {
    const Preamble& preamble = list.Get(i).preamble();
    const auto fail = [&](const std::string& reason) {
      throw LoadFailure{placeOf(list_name, i), std::string("P4Info ") + what +
                                                   (preamble.name().empty() ? "" : " ") +
                                                   preamble.name() + reason};
    };
    if (preamble.name().empty()) fail(" has no name");
    if (!names.insert(preamble.name()).second) fail(" is there twice");
    if (preamble.id() == 0) fail(" has no id");
    if (preamble.id() >> 24 != static_cast<uint32_t>(kind)) {
      fail(": id " + hexId(preamble.id()) + " is not of its kind");
    }
    if (!objects_.emplace(preamble.id(), Object{kind, i}).second) {
      fail(": id " + hexId(preamble.id()) + " is already taken");
    }
  }
}

void Document::checkReference(const std::string& place, const std::string& subject,
                              const char* what, uint32_t id, IdKind kind) const {
  const auto found = objects_.find(id);
  if (found != objects_.end() && found->second.kind == kind) return;
  throw LoadFailure{place, subject + ": there is no " + what + " with id " + hexId(id)};
}

void Document::checkTable(int index) const {
  const Table& table = info_.tables(index);
  const std::string place = placeOf("tables", index);
  const std::string subject = "P4Info table " + table.preamble().name();
  std::set<uint32_t> actions;
  for (const ActionRef& reference : table.action_refs()) {
    checkReference(place, subject, "action", reference.id(), IdKind::kAction);
    if (actions.insert(reference.id()).second) continue;
    throw LoadFailure{place, subject + ": action " + hexId(reference.id()) + " is there twice"};
  }
  for (const uint32_t id :
       {table.const_default_action_id(), table.initial_default_action().action_id()}) {
    if (id != 0) checkReference(place, subject, "action", id, IdKind::kAction);
  }
  if (table.implementation_id() != 0) {
    checkReference(place, subject, "action profile", table.implementation_id(), IdKind::kProfile);
  }
  for (const uint32_t id : table.direct_resource_ids()) {
    const bool meter = id >> 24 == static_cast<uint32_t>(IdKind::kDirectMeter);
    checkReference(place, subject, meter ? "direct meter" : "direct counter", id,
                   meter ? IdKind::kDirectMeter : IdKind::kDirectCounter);
  }
}

void Document::checkReferences() const {
  for (int i = 0; i < info_.tables_size(); ++i) checkTable(i);
  for (int i = 0; i < info_.action_profiles_size(); ++i) {
    const ActionProfile& profile = info_.action_profiles(i);
    for (const uint32_t id : profile.table_ids()) {
      checkReference(placeOf("action_profiles", i),
                     "P4Info action profile " + profile.preamble().name(), "table", id,
                     IdKind::kTable);
    }
  }
  for (int i = 0; i < info_.direct_counters_size(); ++i) {
    const DirectCounter& counter = info_.direct_counters(i);
    checkReference(placeOf("direct_counters", i),
                   "P4Info direct counter " + counter.preamble().name(), "table",
                   counter.direct_table_id(), IdKind::kTable);
  }
  for (int i = 0; i < info_.direct_meters_size(); ++i) {
    const DirectMeter& meter = info_.direct_meters(i);
    checkReference(placeOf("direct_meters", i), "P4Info direct meter " + meter.preamble().name(),
                   "table", meter.direct_table_id(), IdKind::kTable);
  }
}

}  // namespace jxmodel::p4info
