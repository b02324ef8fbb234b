#include "model/program/json/reader.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "model/program/constant.h"
#include "model/program/source_file.h"

namespace jxmodel {
namespace {

std::string pointerStep(std::string_view name) {
  std::string step = "/";
  for (const char c : name) {
    if (c == '~') {
      step += "~0";
    } else if (c == '/') {
      step += "~1";
    } else {
      step += c;
    }
  }
  return step;
}

// The parser counts bytes; people count lines and columns from 1. `byte` is how many bytes were
// read, the offending one included.
LoadFailure syntaxFailure(std::string_view text, size_t byte, std::string_view what) {
  const size_t before = std::min(byte == 0 ? 0 : byte - 1, text.size());
  const std::string_view read = text.substr(0, before);
  const size_t line = 1 + static_cast<size_t>(std::count(read.begin(), read.end(), '\n'));
  const size_t line_start = read.rfind('\n') + 1;  // npos + 1 is 0
  const size_t reason = what.find("syntax error");
  return {"line " + std::to_string(line) + ", column " + std::to_string(before - line_start + 1),
          std::string(reason == std::string_view::npos ? what : what.substr(reason))};
}

// Follows a parser through the document, ahead of the pass that builds it.
class DocumentWatch final : public nlohmann::json_sax<Json> {
 public:
  DocumentWatch(std::string_view text, uint32_t max_nesting)
      : text_(text), max_nesting_(max_nesting) {}

  bool null() override { return beginValue(); }
  bool boolean(bool) override { return beginValue(); }
  bool number_integer(number_integer_t) override { return beginValue(); }
  bool number_unsigned(number_unsigned_t) override { return beginValue(); }
  bool number_float(number_float_t, const string_t&) override { return beginValue(); }
  bool string(string_t&) override { return beginValue(); }
  bool binary(binary_t&) override { return beginValue(); }
  bool start_object(size_t) override { return open(false); }
  bool start_array(size_t) override { return open(true); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }

  bool key(string_t& name) override {
    Level& level = levels_.back();
    level.step.clear();
    if (!level.names.insert(name).second) {
      throw LoadFailure{place(), "member " + inQuotes(name) + " is given twice"};
    }
    level.step = pointerStep(name);
    return true;
  }

  bool parse_error(size_t position, const std::string&,
                   const nlohmann::detail::exception& error) override {
    if (dynamic_cast<const Json::parse_error*>(&error) != nullptr) {
      throw syntaxFailure(text_, position, error.what());
    }
    beginValue();  // of a list's number, which was not reported
    throw LoadFailure{place(), "a number is greater than any that can be read"};
  }

 private:
  struct Level {
    bool list = false;
    size_t items = 0;             // begun so far
    std::set<std::string> names;  // of members begun so far
    std::string step;             // to the value that is being read
  };

  bool open(bool list) {
    beginValue();
    if (levels_.size() == max_nesting_) {
      throw LoadFailure{place(), "nested deeper than " + std::to_string(max_nesting_) + " levels"};
    }
    levels_.emplace_back();
    levels_.back().list = list;
    return true;
  }

  bool close() {
    levels_.pop_back();
    return true;
  }

  bool beginValue() {
    if (levels_.empty() || !levels_.back().list) return true;
    levels_.back().step = pointerStep(std::to_string(levels_.back().items++));
    return true;
  }

  std::string place() const {
    std::string text;
    for (const Level& level : levels_) text += level.step;
    return text;
  }

  std::string_view text_;
  uint32_t max_nesting_;
  std::vector<Level> levels_;
};

// Walks through a document, without the machine's stack: documents nest deeply.
class PlaceSearch {
 public:
  PlaceSearch(const Json& document, const Json& wanted) : wanted_(wanted) { enter(document); }

  /// JSON pointer of the wanted value, which is in the document.
  std::string run() {
    while (!found_ && !levels_.empty()) {
      Level& level = levels_.back();
      if (level.next == level.parent->end()) {
        levels_.pop_back();
      } else {
        const Json& child = *level.next++;
        enter(child);
      }
    }
    std::string place;
    for (const Level& level : levels_) place += step(level);
    return place;
  }

 private:
  struct Level {
    const Json* parent;
    Json::const_iterator next;  // child that is visited next
  };

  void enter(const Json& value) {
    found_ = &value == &wanted_;
    if (!found_ && value.is_structured()) levels_.push_back({&value, value.begin()});
  }

  static std::string step(const Level& level) {
    const auto visited = std::prev(level.next);
    return pointerStep(level.parent->is_object() ? visited.key()
                                                 : std::to_string(visited - level.parent->begin()));
  }

  const Json& wanted_;
  bool found_ = false;
  std::vector<Level> levels_;
};

// Places of deeply nested values keep both ends.
std::string shortPlace(const std::string& place) {
  constexpr size_t kEnd = 200;
  if (place.size() <= 2 * kEnd) return place;
  return place.substr(0, kEnd) + "..." + place.substr(place.size() - kEnd);
}

bool isNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }

bool isNameCharacter(char c) { return isNameStart(c) || (c >= '0' && c <= '9') || c == '.'; }

}  // namespace

std::string inQuotes(std::string_view text) {
  constexpr size_t kShown = 80;
  if (text.size() <= kShown) return "'" + std::string(text) + "'";
  return "'" + std::string(text.substr(0, kShown)) + "...'";
}

void report(const LoadFailure& failure, const std::string& file, LoadError* error) {
  fillError(error, file, shortPlace(failure.place), failure.reason);
}

Json parseDocument(std::string_view text, uint32_t max_nesting) {
  DocumentWatch watch(text, max_nesting);
  Json::sax_parse(text, &watch);
  return Json::parse(text);
}

void Node::fail(std::string reason) const { throw LoadFailure{place(), std::move(reason)}; }

std::string Node::place() const { return PlaceSearch(*document_, *value_).run(); }

void Node::expectObject(std::string_view what, std::initializer_list<const char*> members) const {
  if (!value_->is_object()) fail("must be an object");
  for (const auto& item : value_->items()) {
    const std::string& name = item.key();
    if (name == "description") {
      at("description").string();
      continue;
    }
    const bool known = std::any_of(members.begin(), members.end(),
                                   [&name](const char* member) { return name == member; });
    if (!known) fail("unknown member " + inQuotes(name) + " in " + std::string(what));
  }
}

Node Node::at(const char* member) const {
  const std::optional<Node> node = find(member);
  if (!node) fail("member " + inQuotes(member) + " is missing");
  return *node;
}

std::optional<Node> Node::find(const char* member) const {
  const auto found = value_->find(member);
  if (found == value_->end()) return std::nullopt;
  return Node(*found, *document_);
}

std::optional<Node> Node::findValue(const char* member) const {
  std::optional<Node> node = find(member);
  if (node && node->isNull()) node.reset();
  return node;
}

std::vector<std::pair<std::string, Node>> Node::members() const {
  if (!value_->is_object()) fail("must be an object");
  std::vector<std::pair<std::string, Node>> all;
  for (const auto& item : value_->items()) {
    all.emplace_back(item.key(), Node(item.value(), *document_));
  }
  return all;
}

std::vector<Node> Node::items(size_t min, size_t max) const {
  if (!value_->is_array()) fail("must be a list");
  if (value_->size() < min || value_->size() > max) {
    fail("must have " + std::to_string(min) + " to " + std::to_string(max) + " items, has " +
         std::to_string(value_->size()));
  }
  std::vector<Node> all;
  all.reserve(value_->size());
  for (const Json& item : *value_) all.push_back(Node(item, *document_));
  return all;
}

const std::string& Node::string() const {
  if (!value_->is_string()) fail("must be a string");
  return value_->get_ref<const std::string&>();
}

const std::string& Node::name() const {
  const std::string& text = string();
  if (text.empty() || text.size() > kMaxNameLength || !isNameStart(text.front()) ||
      !std::all_of(text.begin(), text.end(), isNameCharacter)) {
    fail(inQuotes(text) +
         " is no name: a letter or '_', then letters, digits, '_' and '.', up to " +
         std::to_string(kMaxNameLength) + " characters");
  }
  return text;
}

uint32_t Node::number(uint32_t min, uint32_t max) const {
  const bool fits = value_->is_number_unsigned() && value_->get<uint64_t>() >= min &&
                    value_->get<uint64_t>() <= max;
  if (!fits) {
    fail("must be a whole number from " + std::to_string(min) + " to " + std::to_string(max));
  }
  return value_->get<uint32_t>();
}

uint64_t Node::count() const {
  if (!value_->is_number_unsigned()) fail("must be a whole number from 0 on");
  return value_->get<uint64_t>();
}

bool Node::boolean() const {
  if (!value_->is_boolean()) fail("must be true or false");
  return value_->get<bool>();
}

std::string Node::describe() const {
  return value_->is_string() ? inQuotes(value_->get_ref<const std::string&>()) : value_->dump();
}

std::vector<uint8_t> Node::constant(uint32_t width) const {
  if (!isUnsigned() && !isString()) fail("must be a number that is not negative, or a string");
  const std::string text = isString() ? string() : std::to_string(value_->get<uint64_t>());
  std::vector<uint8_t> bytes;
  switch (parseConstant(text, width, &bytes)) {
    case ConstantStatus::kOk:
      return bytes;
    case ConstantStatus::kTooWide:
      fail(describe() + " does not fit " + std::to_string(width) + " bits");
    case ConstantStatus::kMalformed:
      break;
  }
  fail(describe() + " is no decimal, 0x, MAC, IPv4 or IPv6 value");
}

}  // namespace jxmodel
