#include "stf_commands.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

namespace stf {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHexDigit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }
bool endsName(char c) {
  return isBlank(c) || c == ':' || c == '(' || c == ')' || c == ',' || c == '=';
}
bool ofValue(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '*' || c == '_';
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

/// The text of a line without its comment; # in quotes is part of a name.
std::string_view withoutComment(std::string_view text) {
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') quoted = !quoted;
    if (text[i] == '#' && !quoted) return text.substr(0, i);
  }
  return text;
}

/// Reads one line from left to right.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) { skipBlanks(); }

  bool atEnd() const { return at_ == text_.size(); }
  char peek() const { return atEnd() ? '\0' : text_[at_]; }

  /// Takes the mark, and blanks behind it, if it stands here.
  bool take(std::string_view mark) {
    if (text_.substr(at_, mark.size()) != mark) return false;
    at_ += mark.size();
    skipBlanks();
    return true;
  }
  void need(std::string_view mark, const std::string& where) {
    if (!take(mark)) throw Error("'" + std::string(mark) + "' is missing " + where + here());
  }

  /// Up to the next blank.
  std::string word(const char* what) {
    return run(what, [](char c) { return !isBlank(c); });
  }
  std::string value(const char* what) { return run(what, ofValue); }

  /// A name, of which parts may be quoted; `x.isValid()` is one where a colon follows.
  std::string name(const char* what) {
    std::string out;
    while (!atEnd()) {
      if (peek() == '"') {
        const size_t end = text_.find('"', at_ + 1);
        if (end == std::string_view::npos) throw Error("a quote that does not end" + here());
        out += text_.substr(at_ + 1, end - at_ - 1);
        at_ = end + 1;
      } else if (isCallInName()) {
        out += "()";
        at_ += 2;
      } else if (endsName(peek())) {
        break;
      } else {
        out += text_[at_++];
      }
    }
    skipBlanks();
    if (out.empty()) throw missing(what);
    return out;
  }

  uint64_t number(const char* what, uint64_t limit = UINT32_MAX) {
    return parseNumber(value(what), what, limit);
  }
  uint32_t number32(const char* what) { return static_cast<uint32_t>(number(what)); }

  std::string rest() {
    std::string out(text_.substr(at_));
    at_ = text_.size();
    return out;
  }

  void end() const {
    if (!atEnd()) throw Error("'" + std::string(text_.substr(at_)) + "' is too much");
  }

  /// Whether a number stands here that is no name of a key.
  bool atNumber() const {
    if (!isDigit(peek())) return false;
    size_t i = at_;
    while (i < text_.size() && ofValue(text_[i])) ++i;
    return i == text_.size() || isBlank(text_[i]);
  }
  /// Whether a key stands here: a name and a colon.
  bool atKey() const {
    Reader ahead(*this);
    if (ahead.atEnd()) return false;
    ahead.name("key");
    return ahead.peek() == ':';
  }

 private:
  Error missing(const char* what) const {
    return Error(std::string(what) + " is missing" +
                 (atEnd() ? " at the end of the line" : here()));
  }
  std::string here() const {
    return atEnd() ? std::string() : " before '" + std::string(text_.substr(at_)) + "'";
  }
  bool isCallInName() const {
    if (text_.substr(at_, 2) != "()") return false;
    size_t i = at_ + 2;
    while (i < text_.size() && isBlank(text_[i])) ++i;
    return i < text_.size() && text_[i] == ':';
  }
  template <typename Fits>
  std::string run(const char* what, Fits fits) {
    const size_t begin = at_;
    while (!atEnd() && fits(peek())) ++at_;
    if (at_ == begin) throw missing(what);
    std::string out(text_.substr(begin, at_ - begin));
    skipBlanks();
    return out;
  }
  void skipBlanks() {
    while (!atEnd() && isBlank(peek())) ++at_;
  }

  std::string_view text_;
  size_t at_ = 0;
};

uint32_t readPort(Reader& in) {
  const std::string text = in.value("a port");
  if (!std::all_of(text.begin(), text.end(), isDigit)) {
    throw Error("port '" + text + "' is not a decimal number");
  }
  return static_cast<uint32_t>(parseNumber(text, "port", 511));
}

std::vector<uint32_t> readPorts(Reader& in) {
  std::vector<uint32_t> ports;
  do {
    ports.push_back(readPort(in));
    in.take(",");
  } while (!in.atEnd());
  return ports;
}

/// Hexadecimal digits, and stars where they may stand; blanks mean nothing.
std::string readDigits(std::string text, bool stars) {
  text.erase(std::remove_if(text.begin(), text.end(), isBlank), text.end());
  text = lower(text);
  if (text.compare(0, 2, "0x") == 0) text.erase(0, 2);
  const auto bad = std::find_if(text.begin(), text.end(),
                                [stars](char c) { return !isHexDigit(c) && !(stars && c == '*'); });
  if (bad != text.end()) throw Error(std::string("'") + *bad + "' is not a hexadecimal digit");
  return text;
}

Command readPacket(Reader& in) {
  PacketIn packet;
  packet.port = readPort(in);
  packet.digits = readDigits(in.rest(), false);
  if (packet.digits.empty()) throw Error("a packet without bytes");
  if (packet.digits.size() % 2 != 0) {
    throw Error("a packet of " + std::to_string(packet.digits.size()) +
                " digits: two are needed for each byte");
  }
  return packet;
}

Command readExpect(Reader& in) {
  Expect expect;
  expect.port = readPort(in);
  std::string text = in.rest();
  while (!text.empty() && isBlank(text.back())) text.pop_back();
  if (text.empty()) return expect;
  if (text.back() == '$') {
    expect.whole = true;
    text.pop_back();
  }
  expect.digits = readDigits(text, true);
  return expect;
}

KeyValue readKey(Reader& in) {
  KeyValue key;
  key.name = in.name("a key");
  in.need(":", "behind key " + key.name);
  key.value = in.value("the value of a key");
  if (in.take("/")) {
    key.form = KeyValue::Form::kPrefix;
    key.prefix = in.number32("a prefix length");
  } else if (in.take("->")) {
    key.form = KeyValue::Form::kRange;
    key.second = in.value("the end of a range");
  } else if (in.take("&&&")) {
    key.form = KeyValue::Form::kMask;
    key.second = in.value("a mask");
  }
  return key;
}

/// member(ID), group(ID); false, and nothing read, if it is an action.
bool readReference(Reader& in, const std::string& name, Call* call) {
  if (name != "member" && name != "group") return false;
  Reader ahead(in);
  if (!ahead.take("(") || !isDigit(ahead.peek())) return false;
  const std::string id = ahead.value("a number");
  if (!ahead.take(")")) return false;
  (name == "member" ? call->member : call->group) =
      static_cast<uint32_t>(parseNumber(id, name, UINT32_MAX));
  in = ahead;
  return true;
}

Call readCall(Reader& in) {
  Call call;
  const std::string name = in.name("an action");
  if (readReference(in, name, &call)) return call;
  call.action = name;
  if (!in.take("(")) return call;
  while (!in.take(")")) {
    if (!call.arguments.empty()) in.need(",", "between the values of action " + name);
    Argument argument;
    argument.name = in.name("a parameter");
    in.need(":", "behind parameter " + argument.name);
    argument.value = in.value("the value of a parameter");
    call.arguments.push_back(std::move(argument));
  }
  return call;
}

Command readAdd(Reader& in) {
  Add add;
  add.table = in.name("a table");
  if (in.atNumber()) add.priority = in.number32("a priority");
  while (in.atKey()) add.key.push_back(readKey(in));
  add.call = readCall(in);
  if (in.take("=")) add.id = in.word("the id of the entry");
  return add;
}

Command readDefault(Reader& in) {
  SetDefault change;
  change.table = in.name("a table");
  change.call = readCall(in);
  return change;
}

Command readMember(Reader& in) {
  AddMember change;
  change.profile = in.name("an action profile");
  change.id = in.number32("the number of the member");
  change.call = readCall(in);
  return change;
}

Command readGroup(Reader& in) {
  AddGroup change;
  change.profile = in.name("an action profile");
  change.id = in.number32("the number of the group");
  while (!in.atEnd()) {
    change.members.push_back(in.number32("the number of a member"));
    in.take(",");
  }
  return change;
}

CheckCounter::Test readTest(Reader& in) {
  using Test = CheckCounter::Test;
  const std::pair<const char*, Test> tests[] = {
      {"==", Test::kEqual}, {"!=", Test::kNotEqual},     {"<=", Test::kLessEqual},
      {"<", Test::kLess},   {">=", Test::kGreaterEqual}, {">", Test::kGreater},
  };
  for (const auto& [text, test] : tests) {
    if (in.take(text)) return test;
  }
  throw Error("a comparison is missing: ==, !=, <, <=, > or >=");
}

Command readCheck(Reader& in) {
  CheckCounter check;
  check.name = in.name("a counter");
  in.need("(", "behind counter " + check.name);
  in.take("$");
  check.index = in.value("the index of the counter");
  in.need(")", "behind the index of counter " + check.name);
  if (in.atEnd()) return check;
  CheckCounter::Condition condition;
  const std::string unit = lower(in.value("packets or bytes"));
  if (unit != "packets" && unit != "bytes") throw Error("'" + unit + "' is not packets or bytes");
  condition.bytes = unit == "bytes";
  condition.test = readTest(in);
  condition.value = in.number("a number", UINT64_MAX);
  check.condition = condition;
  return check;
}

SetMeter::Rate readRate(Reader& in) {
  const std::string text = in.word("RATE:BURST");
  const size_t colon = text.find(':');
  SetMeter::Rate rate;
  char* end = nullptr;
  rate.per_microsecond = std::strtod(text.c_str(), &end);
  if (colon == 0 || colon == std::string::npos || end != text.c_str() + colon ||
      !(rate.per_microsecond >= 0 && rate.per_microsecond < 1e12)) {
    throw Error("'" + text + "' is not RATE:BURST, 0.5:100 say");
  }
  rate.burst = parseNumber(text.substr(colon + 1), "burst");
  return rate;
}

Command readMeterRates(Reader& in, bool all) {
  SetMeter change;
  change.name = in.name("a meter");
  if (!all) change.index = in.number32("the index of the meter");
  change.committed = readRate(in);
  // One rate is both.
  change.peak = in.atEnd() ? change.committed : readRate(in);
  return change;
}

Command readValueSet(Reader& in, bool remove) {
  ChangeValueSet change;
  change.remove = remove;
  change.name = in.name("a value set");
  change.value = in.value("a value");
  if (in.take("&&&")) change.mask = in.value("a mask");
  return change;
}

Command readRemove(Reader& in) {
  if (lower(in.word("all")) != "all") throw Error("remove takes the word all and nothing else");
  return RemoveAll{};
}

Command readSession(Reader& in, bool to_group) {
  SetSession change;
  change.session = in.number32("a clone session");
  if (to_group) {
    change.group = in.number32("a multicast group");
  } else {
    change.port = readPort(in);
  }
  return change;
}

template <typename Cell>
Command readCell(Reader& in) {
  Cell cell;
  cell.name = in.name("a name");
  cell.index = in.number32("an index");
  return cell;
}

Command readWriteCounter(Reader& in) {
  WriteCounter change;
  change.name = in.name("a counter");
  change.index = in.number32("an index");
  change.packets = in.number("packets", UINT64_MAX);
  change.bytes = in.number("bytes", UINT64_MAX);
  return change;
}

Command readWriteRegister(Reader& in) {
  WriteRegister change;
  change.name = in.name("a register");
  change.index = in.number32("an index");
  change.value = in.value("a value");
  return change;
}

Command readNode(Reader& in, bool update) {
  const uint32_t number = in.number32(update ? "a node" : "a replication id");
  std::vector<uint32_t> ports;
  if (!in.atEnd()) ports = readPorts(in);
  if (update) return UpdateNode{number, std::move(ports)};
  return CreateNode{number, std::move(ports)};
}

Command readAssociate(Reader& in) {
  Associate change;
  change.group = in.number32("a multicast group");
  change.node = in.number32("a node");
  return change;
}

struct Keyword {
  const char* word;
  Command (*read)(Reader& in);
};

const Keyword kKeywords[] = {
    {"packet", readPacket},
    {"expect", readExpect},
    {"no_packet", [](Reader&) -> Command { return Pause{}; }},
    {"wait", [](Reader&) -> Command { return Wait{}; }},
    {"remove", readRemove},
    {"add", readAdd},
    {"setdefault", readDefault},
    {"member", readMember},
    {"group", readGroup},
    {"check_counter", readCheck},
    {"mirroring_add", [](Reader& in) { return readSession(in, false); }},
    {"mirroring_add_mc", [](Reader& in) { return readSession(in, true); }},
    {"mirroring_delete",
     [](Reader& in) -> Command { return DeleteSession{in.number32("a clone session")}; }},
    {"mirroring_get",
     [](Reader& in) -> Command { return GetSession{in.number32("a clone session")}; }},
    {"mc_mgrp_create",
     [](Reader& in) -> Command { return CreateGroup{in.number32("a multicast group")}; }},
    {"mc_mgrp_delete",
     [](Reader& in) -> Command { return DeleteGroup{in.number32("a multicast group")}; }},
    {"mc_node_create", [](Reader& in) { return readNode(in, false); }},
    {"mc_node_update", [](Reader& in) { return readNode(in, true); }},
    {"mc_node_associate", readAssociate},
    {"counter_read", readCell<ReadCounter>},
    {"counter_write", readWriteCounter},
    {"register_read", readCell<ReadRegister>},
    {"register_write", readWriteRegister},
    {"register_reset", [](Reader& in) -> Command { return ResetRegister{in.name("a register")}; }},
    {"meter_get_rates", readCell<ReadMeter>},
    {"meter_set_rates", [](Reader& in) { return readMeterRates(in, false); }},
    {"meter_array_set_rates", [](Reader& in) { return readMeterRates(in, true); }},
    {"vset_add", [](Reader& in) { return readValueSet(in, false); }},
    {"vset_remove", [](Reader& in) { return readValueSet(in, true); }},
};

/// Both forms of expect on one port contradict each other.
void checkForms(const std::vector<Line>& lines, const std::string& name) {
  std::vector<const Line*> first(512, nullptr);
  for (const Line& line : lines) {
    const auto* const expect = std::get_if<Expect>(&line.command);
    if (expect == nullptr) continue;
    const Line*& before = first[expect->port];
    if (before == nullptr) before = &line;
    if (std::get<Expect>(before->command).digits.has_value() == expect->digits.has_value())
      continue;
    throw Error(name + ':' + std::to_string(line.number) + ": port " +
                std::to_string(expect->port) +
                " expects packets with and without content, see line " +
                std::to_string(before->number) + ": choose one form for it");
  }
}

}  // namespace

uint64_t parseNumber(const std::string& text, const std::string& what, uint64_t limit) {
  const std::string digits = lower(text);
  const bool hex = digits.compare(0, 2, "0x") == 0;
  const bool binary = digits.compare(0, 2, "0b") == 0;
  const int base = hex ? 16 : binary ? 2 : 10;
  const char* const begin = digits.c_str() + (hex || binary ? 2 : 0);
  char* end = nullptr;
  errno = 0;
  const uint64_t number = std::strtoull(begin, &end, base);
  if (!isHexDigit(*begin) || *end != '\0' || errno != 0) {
    throw Error(what + ": '" + text + "' is not a number");
  }
  if (number > limit) {
    throw Error(what + ": " + text + " is above " + std::to_string(limit) +
                ", the greatest there is");
  }
  return number;
}

std::string bytesOfDigits(const std::string& digits) {
  std::string bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes += static_cast<char>(std::strtoul(digits.substr(i, 2).c_str(), nullptr, 16));
  }
  return bytes;
}

std::optional<Command> parseLine(std::string_view text) {
  Reader in(withoutComment(text));
  if (in.atEnd()) return std::nullopt;
  const std::string word = in.word("a command");
  const std::string wanted = lower(word);
  for (const Keyword& keyword : kKeywords) {
    if (wanted != keyword.word) continue;
    Command command = keyword.read(in);
    in.end();
    return command;
  }
  throw Error("'" + word + "' is not a command");
}

std::vector<Line> parseText(std::string_view text, const std::string& name) {
  std::vector<Line> lines;
  uint32_t number = 0;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    ++number;
    try {
      if (auto command = parseLine(text.substr(begin, end - begin))) {
        lines.push_back({number, std::move(*command)});
      }
    } catch (const Error& error) {
      throw Error(name + ':' + std::to_string(number) + ": " + error.what());
    }
    begin = end + 1;
  }
  checkForms(lines, name);
  return lines;
}

std::vector<Line> parseFile(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  if (file.is_open()) file.peek();  // a folder can be opened, but not read
  if (!file.is_open() || file.bad()) {
    throw Error("cannot read " + name + ": " + std::generic_category().message(errno));
  }
  file.clear();
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  return parseText(text, name);
}

}  // namespace stf
