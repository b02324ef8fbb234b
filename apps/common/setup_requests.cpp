#include "setup_requests.h"

#include <algorithm>
#include <cstdio>
#include <type_traits>
#include <utility>

namespace stf {
namespace {

namespace pb = jx::control::v1;
using Program = pb::ProgramDescription;
using Request = pb::ApplyRequest;
using Key = Program::Key;

constexpr double kMicrosecondsPerSecond = 1e6;

uint32_t bytesOf(uint32_t width) { return (width + 7) / 8; }

bool endsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// The one of the list that has the name, or else the only one whose name ends with it.
Error twoFit(const std::string& kind, const std::string& name, const std::string& one,
             const std::string& other) {
  return Error(kind + ' ' + name + " can be " + one + " or " + other + ": write more of the name");
}

Error noNumber(const std::string& what, const std::string& text) {
  return Error(what + ": '" + text + "' is not a number");
}

template <typename List>
const typename List::value_type& lookUp(const List& list, const std::string& kind,
                                        const std::string& name, const std::string& where) {
  const typename List::value_type* found = nullptr;
  for (const auto& item : list) {
    if (item.name() == name) return item;
  }
  for (const auto& item : list) {
    if (!endsWith(item.name(), name)) continue;
    if (found != nullptr) {
      throw twoFit(kind, name, found->name(), item.name() + where);
    }
    found = &item;
  }
  if (found == nullptr) throw Error("there is no " + kind + ' ' + name + where);
  return *found;
}

// --- numbers of any width, in network byte order

/// bytes := bytes * factor + digit; false where that does not fit.
bool shiftIn(std::string* bytes, uint32_t factor, uint32_t digit) {
  uint32_t carry = digit;
  for (size_t i = bytes->size(); i-- > 0;) {
    const uint32_t now = static_cast<uint8_t>((*bytes)[i]) * factor + carry;
    (*bytes)[i] = static_cast<char>(now & 0xFF);
    carry = now >> 8;
  }
  return carry == 0;
}

uint32_t digitOf(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint32_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<uint32_t>(c - 'a') + 10;
  if (c >= 'A' && c <= 'F') return static_cast<uint32_t>(c - 'A') + 10;
  return 16;
}

/// A number as it is written: its digits, and how many bits each has (0: decimal).
struct Written {
  std::string digits;
  uint32_t base = 10;
  uint32_t bits_per_digit = 0;
};

Written readWritten(const std::string& text) {
  Written written{text, 10, 0};
  if (text.size() < 2 || text[0] != '0') return written;
  if (text[1] == 'x' || text[1] == 'X') written = {text.substr(2), 16, 4};
  if (text[1] == 'b' || text[1] == 'B') written = {text.substr(2), 2, 1};
  return written;
}

bool withinWidth(const std::string& bytes, uint32_t width) {
  const uint32_t spare = bytesOf(width) * 8 - width;
  return spare == 0 || (static_cast<uint8_t>(bytes[0]) >> (8 - spare)) == 0;
}

/// A number whose digits may be stars, which are 0.
std::string starredValue(const std::string& text, uint32_t width, const std::string& what) {
  if (text == "true" || text == "false") return valueBytes(text == "true" ? "1" : "0", width, what);
  const Written written = readWritten(text);
  std::string bytes(bytesOf(width), '\0');
  bool fits = true;
  if (written.digits.empty()) throw noNumber(what, text);
  for (const char c : written.digits) {
    if (c == '_') continue;
    const uint32_t digit = c == '*' && written.bits_per_digit != 0 ? 0 : digitOf(c);
    if (digit >= written.base) throw noNumber(what, text);
    fits = shiftIn(&bytes, written.base, digit) && fits;
  }
  if (!fits || (width != 0 && !withinWidth(bytes, width))) {
    throw Error(what + ": " + text + " does not fit " + std::to_string(width) + " bits");
  }
  return bytes;
}

bool hasStar(const std::string& text) { return text.find('*') != std::string::npos; }
bool isAny(const std::string& text) {
  const Written written = readWritten(text);
  return !written.digits.empty() && written.digits.find_first_not_of('*') == std::string::npos;
}

/// All ones, or ones in the first `prefix` bits.
std::string prefixMask(uint32_t width, uint32_t prefix) {
  std::string mask(bytesOf(width), '\0');
  const uint32_t spare = bytesOf(width) * 8 - width;
  for (uint32_t bit = spare; bit < spare + prefix; ++bit) {
    mask[bit / 8] = static_cast<char>(static_cast<uint8_t>(mask[bit / 8]) | (0x80 >> (bit % 8)));
  }
  return mask;
}

/// Ones for digits that are written and no stars; digits in front of the field do not count.
std::string writtenMask(const Written& written, uint32_t width) {
  std::string mask(bytesOf(width), '\0');
  for (const char c : written.digits) {
    if (c != '_') shiftIn(&mask, written.base, c == '*' ? 0 : written.base - 1);
  }
  const std::string all = prefixMask(width, width);
  for (size_t i = 0; i < mask.size(); ++i) mask[i] = static_cast<char>(mask[i] & all[i]);
  return mask;
}

void keepMasked(const std::string& mask, std::string* value) {
  for (size_t i = 0; i < value->size(); ++i) (*value)[i] = static_cast<char>((*value)[i] & mask[i]);
}

// --- keys

std::string describe(const Program::Table& table, const Key& key) {
  return "table " + table.name() + ", key " + key.name();
}

Error wrongForm(const std::string& what, const KeyValue& given, const char* takes) {
  return Error(what + " takes " + takes + ", not '" + given.value +
               (given.form == KeyValue::Form::kPrefix  ? "/" + std::to_string(given.prefix)
                : given.form == KeyValue::Form::kRange ? "->" + given.second
                : given.form == KeyValue::Form::kMask  ? "&&&" + given.second
                                                       : std::string()) +
               "'");
}

/// The prefix length that a value without /LEN has.
uint32_t writtenPrefix(const std::string& text, uint32_t width, const std::string& what) {
  const Written written = readWritten(text);
  if (written.bits_per_digit == 0) return text == "*" ? 0 : width;
  const size_t star = std::min(written.digits.find('*'), written.digits.size());
  if (written.digits.find_first_not_of('*', star) != std::string::npos) {
    throw Error(what + ": '" + text + "' has digits behind a star: a prefix has none");
  }
  const auto digits =
      static_cast<uint32_t>(star - static_cast<size_t>(std::count(
                                       written.digits.begin(),
                                       written.digits.begin() + static_cast<int64_t>(star), '_')));
  return std::min(digits * written.bits_per_digit, width);
}

void fillLpm(const KeyValue& given, uint32_t width, const std::string& what,
             pb::KeyField::Lpm* out) {
  const bool plain = given.form == KeyValue::Form::kPlain;
  if (!plain && given.form != KeyValue::Form::kPrefix) {
    throw wrongForm(what, given, "VALUE/LENGTH");
  }
  const uint32_t prefix = plain ? writtenPrefix(given.value, width, what) : given.prefix;
  if (prefix > width) {
    throw Error(what + ": prefix length " + std::to_string(prefix) + " is beyond the " +
                std::to_string(width) + " bits of the field");
  }
  std::string value = given.value == "*" ? std::string(bytesOf(width), '\0')
                                         : starredValue(given.value, width, what);
  keepMasked(prefixMask(width, prefix), &value);
  out->set_value(value);
  out->set_prefix_length(prefix);
}

void fillTernary(const KeyValue& given, uint32_t width, const std::string& what,
                 pb::KeyField::Ternary* out) {
  std::string value(bytesOf(width), '\0');
  std::string mask = value;
  switch (given.form) {
    case KeyValue::Form::kRange:
      throw wrongForm(what, given, "a value with a mask");
    case KeyValue::Form::kPrefix:
      if (given.prefix > width) throw wrongForm(what, given, "a prefix of its own width at most");
      value = valueBytes(given.value, width, what);
      mask = prefixMask(width, given.prefix);
      break;
    case KeyValue::Form::kMask:
      value = valueBytes(given.value, width, what);
      mask = valueBytes(given.second, width, what + " (mask)");
      break;
    case KeyValue::Form::kPlain: {
      if (given.value == "*") break;
      const Written written = readWritten(given.value);
      value = starredValue(given.value, width, what);
      // A decimal number has no digits that could be left out.
      mask = written.bits_per_digit == 0 ? prefixMask(width, width) : writtenMask(written, width);
      break;
    }
  }
  keepMasked(mask, &value);
  out->set_value(value);
  out->set_mask(mask);
}

void fillRange(const KeyValue& given, uint32_t width, const std::string& what,
               pb::KeyField::Range* out) {
  const bool range = given.form == KeyValue::Form::kRange;
  if (!range && given.form != KeyValue::Form::kPlain) throw wrongForm(what, given, "LOW->HIGH");
  if (!range && isAny(given.value)) {
    out->set_low(std::string(bytesOf(width), '\0'));
    out->set_high(prefixMask(width, width));
    return;
  }
  out->set_low(valueBytes(given.value, width, what));
  out->set_high(range ? valueBytes(given.second, width, what) : out->low());
  if (out->low() > out->high()) throw wrongForm(what, given, "a range that begins below its end");
}

void fillOptional(const KeyValue& given, uint32_t width, const std::string& what,
                  pb::KeyField::Optional* out) {
  if (given.form != KeyValue::Form::kPlain) throw wrongForm(what, given, "a value, or *");
  out->set_valid(!isAny(given.value));
  out->set_value(out->valid() ? valueBytes(given.value, width, what)
                              : std::string(bytesOf(width), '\0'));
}

void fillKey(const Program::Table& table, const Key& key, const KeyValue& given,
             pb::KeyField* out) {
  const std::string what = describe(table, key);
  out->set_name(key.name());
  out->set_width(key.width());
  switch (key.match()) {
    case Key::MATCH_LPM:
      return fillLpm(given, key.width(), what, out->mutable_lpm());
    case Key::MATCH_TERNARY:
      return fillTernary(given, key.width(), what, out->mutable_ternary());
    case Key::MATCH_RANGE:
      return fillRange(given, key.width(), what, out->mutable_range());
    case Key::MATCH_OPTIONAL:
      return fillOptional(given, key.width(), what, out->mutable_optional());
    default:
      break;
  }
  if (given.form != KeyValue::Form::kPlain || hasStar(given.value)) {
    throw wrongForm(what, given, "a number");
  }
  out->set_exact(valueBytes(given.value, key.width(), what));
}

/// What a field matches that is left out.
KeyValue leftOut(const Key& key) {
  KeyValue value;
  value.value = key.match() == Key::MATCH_EXACT ? "0" : "*";
  return value;
}

/// "h$3.f" is "h[3].f".
std::string withBrackets(const std::string& name) {
  std::string out;
  for (size_t i = 0; i < name.size(); ++i) {
    const size_t end = name.find_first_not_of("0123456789", i + 1);
    const bool index =
        name[i] == '$' && end != i + 1 && end != std::string::npos && name[end] == '.';
    if (!index) {
      out += name[i];
      continue;
    }
    out += '[' + name.substr(i + 1, end - i - 1) + ']';
    i = end - 1;
  }
  return out;
}

constexpr const char* kValid = ".$valid$";

/// The field that fits in the earliest way; none: -1.
template <typename Fits>
int onlyKey(const Program::Table& table, const std::string& name, Fits fits) {
  int found = -1;
  for (int i = 0; i < table.key_size(); ++i) {
    if (!fits(table.key(i).name())) continue;
    if (found >= 0) {
      throw Error("table " + table.name() + ": key " + name + " can be " + table.key(found).name() +
                  " or " + table.key(i).name() + ": write more of the name");
    }
    found = i;
  }
  return found;
}

int keyOf(const Program::Table& table, const std::string& given) {
  const std::string name = withBrackets(given);
  const std::string valid = ".valid";
  const std::string validity =
      endsWith(name, valid) ? name.substr(0, name.size() - valid.size()) + kValid : name;
  const std::string header = endsWith(validity, kValid)
                                 ? validity.substr(0, validity.size() - std::string(kValid).size())
                                 : name;
  int found = onlyKey(table, given, [&](const std::string& key) { return key == name; });
  if (found < 0)
    found = onlyKey(table, given, [&](const auto& key) { return key == name + kValid; });
  if (found < 0) found = onlyKey(table, given, [&](const auto& key) { return key == validity; });
  if (found < 0)
    found = onlyKey(table, given, [&](const auto& key) { return endsWith(key, '.' + name); });
  if (found < 0) {
    found = onlyKey(table, given, [&](const auto& key) { return endsWith(key, '.' + validity); });
  }
  if (found < 0) {
    found = onlyKey(table, given, [&](const std::string& key) {
      return key == header + ".isValid()" || endsWith(key, '.' + header + ".isValid()");
    });
  }
  if (found < 0 && name == "valid") {
    found = onlyKey(table, given, [](const std::string& key) {
      return endsWith(key, kValid) || endsWith(key, ".isValid()");
    });
  }
  if (found >= 0) return found;
  std::string keys;
  for (const Key& key : table.key()) keys += (keys.empty() ? "" : ", ") + key.name();
  throw Error("table " + table.name() + " has no key " + given +
              (keys.empty() ? ": it has none" : ": it has " + keys));
}

void fillKeys(const Program::Table& table, const std::vector<KeyValue>& given,
              google::protobuf::RepeatedPtrField<pb::KeyField>* out) {
  std::vector<const KeyValue*> of(static_cast<size_t>(table.key_size()), nullptr);
  for (const KeyValue& value : given) {
    const KeyValue*& place = of[static_cast<size_t>(keyOf(table, value.name))];
    if (place != nullptr) {
      throw Error("table " + table.name() + ": key " + value.name + " stands there twice");
    }
    place = &value;
  }
  for (int i = 0; i < table.key_size(); ++i) {
    const KeyValue* const value = of[static_cast<size_t>(i)];
    fillKey(table, table.key(i), value == nullptr ? leftOut(table.key(i)) : *value, out->Add());
  }
}

pb::MeterRate rateOf(const SetMeter::Rate& rate) {
  pb::MeterRate out;
  out.set_per_second(rate.per_microsecond * kMicrosecondsPerSecond);
  out.set_burst(rate.burst);
  return out;
}

// The words of commands that set nothing up.
const char* wordOf(const PacketIn&) { return "packet"; }
const char* wordOf(const Expect&) { return "expect"; }
const char* wordOf(const Pause&) { return "no_packet"; }
const char* wordOf(const Wait&) { return "wait"; }
const char* wordOf(const RemoveAll&) { return "remove all"; }
const char* wordOf(const CheckCounter&) { return "check_counter"; }
const char* wordOf(const GetSession&) { return "mirroring_get"; }
const char* wordOf(const ReadCounter&) { return "counter_read"; }
const char* wordOf(const ReadRegister&) { return "register_read"; }
const char* wordOf(const ReadMeter&) { return "meter_get_rates"; }

}  // namespace

std::string valueBytes(const std::string& text, uint32_t width, const std::string& what) {
  if (hasStar(text)) throw noNumber(what, text);
  return starredValue(text, width, what);
}

std::string valueText(const std::string& bytes) {
  const size_t first = std::min(bytes.find_first_not_of('\0'), bytes.size());
  if (bytes.size() - first <= sizeof(uint64_t)) {
    uint64_t number = 0;
    for (size_t i = first; i < bytes.size(); ++i) {
      number = number << 8 | static_cast<uint8_t>(bytes[i]);
    }
    return std::to_string(number);
  }
  std::string out = "0x";
  for (const char byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(static_cast<uint8_t>(byte)));
    out += digits;
  }
  return out;
}

std::string ratesText(const pb::ReadCellsReply::Cell& cell, bool counts_bytes) {
  if (!cell.has_rates()) return "no rates";
  std::string out;
  for (const pb::MeterRate& rate : {cell.rates().committed(), cell.rates().peak()}) {
    char text[64];
    std::snprintf(text, sizeof text, "%.9g:%llu ", rate.per_second() / kMicrosecondsPerSecond,
                  static_cast<unsigned long long>(rate.burst()));
    out += text;
  }
  return out +
         (counts_bytes ? "(bytes per microsecond : bytes)" : "(packets per microsecond : packets)");
}

const Program::Table& Names::table(const std::string& name) const {
  return lookUp(program_.tables(), "table", name, " in program " + program_.program());
}

/// The table of an action profile's members; a profile may be named by its groups' table, too.
const Program::Table& Names::memberTable(const std::string& name) const {
  const Program::Table& found = table(name);
  if (found.kind() == pb::TABLE_KIND_ACTION_DATA) return found;
  if (found.action_data_table().empty()) throw Error(found.name() + " is no action profile");
  return table(found.action_data_table());
}

std::string Names::groupTable(const std::string& name) const {
  const Program::Table& found = table(name);
  if (found.kind() == pb::TABLE_KIND_SELECTOR) return found.name();
  for (const Program::Table& other : program_.tables()) {
    if (other.kind() == pb::TABLE_KIND_SELECTOR && other.action_data_table() == found.name()) {
      return other.name();
    }
  }
  throw Error("action profile " + found.name() + " has no groups");
}

std::string Names::counter(const std::string& name) const {
  std::vector<Program::Table> counters;
  for (const Program::Table& table : program_.tables()) {
    if (table.kind() == pb::TABLE_KIND_COUNTER) counters.push_back(table);
  }
  return lookUp(counters, "counter", name, " in program " + program_.program()).name();
}

const Program::Register& Names::reg(const std::string& name) const {
  return lookUp(program_.registers(), "register", name, " in program " + program_.program());
}

const Program::Meter& Names::meter(const std::string& name) const {
  return lookUp(program_.meters(), "meter", name, " in program " + program_.program());
}

void Names::fillCall(const Program::Table& table, const Call& call, Request::Result* out) const {
  if (call.member) out->set_member(*call.member);
  if (call.group) out->set_group(*call.group);
  if (call.action.empty()) return;
  const Program::Action& action =
      lookUp(table.actions(), "action", call.action, " in table " + table.name());
  out->set_action(action.name());
  for (const Argument& argument : call.arguments) {
    const auto known = std::any_of(
        action.params().begin(), action.params().end(),
        [&argument](const Program::Field& param) { return param.name() == argument.name; });
    if (!known) {
      throw Error("action " + action.name() + " has no parameter " + argument.name);
    }
  }
  for (const Program::Field& param : action.params()) {
    const auto given =
        std::find_if(call.arguments.begin(), call.arguments.end(),
                     [&param](const Argument& argument) { return argument.name == param.name(); });
    if (given == call.arguments.end() && param.has_default_value()) {
      out->add_params(param.default_value());
      continue;
    }
    if (given == call.arguments.end()) {
      throw Error("action " + action.name() + ": a value for " + param.name() + " is missing");
    }
    out->add_params(
        valueBytes(given->value, param.width(), "action " + action.name() + ", " + param.name()));
  }
  if (call.arguments.size() > static_cast<size_t>(action.params_size())) {
    throw Error("action " + action.name() + ": a parameter has two values");
  }
}

void Names::fillEntry(const Add& command, Request::AddEntry* out) const {
  const Program::Table& table = this->table(command.table);
  out->set_table(table.name());
  if (table.has_priority()) out->set_priority(command.priority.value_or(0));
  fillKeys(table, command.key, out->mutable_key());
  fillCall(table, command.call, out->mutable_result());
}

void Names::fill(const ChangeValueSet& command, Request::ChangeValueSet* out) const {
  const Program::ValueSet& set =
      lookUp(program_.value_sets(), "value set", command.name, " in program " + program_.program());
  const std::string what = "value set " + set.name();
  out->set_name(set.name());
  out->set_remove(command.remove);
  pb::ValueSetMember* const member = out->mutable_member();
  member->set_mask(command.mask.empty() ? prefixMask(set.width(), set.width())
                                        : valueBytes(command.mask, set.width(), what + " (mask)"));
  member->set_value(valueBytes(command.value, set.width(), what));
}

Request Names::request(const Command& command) const {
  Request out;
  std::visit(
      [&](const auto& given) {
        using Given = std::decay_t<decltype(given)>;
        if constexpr (std::is_same_v<Given, Add>) {
          fillEntry(given, out.mutable_add_entry());
        } else if constexpr (std::is_same_v<Given, SetDefault>) {
          const Program::Table& table = this->table(given.table);
          out.mutable_set_default()->set_table(table.name());
          fillCall(table, given.call, out.mutable_set_default()->mutable_result());
        } else if constexpr (std::is_same_v<Given, AddMember>) {
          const Program::Table& table = memberTable(given.profile);
          out.mutable_add_member()->set_table(table.name());
          out.mutable_add_member()->set_id(given.id);
          fillCall(table, given.call, out.mutable_add_member()->mutable_result());
        } else if constexpr (std::is_same_v<Given, AddGroup>) {
          out.mutable_add_group()->set_table(groupTable(given.profile));
          out.mutable_add_group()->set_id(given.id);
          for (const uint32_t member : given.members) out.mutable_add_group()->add_members(member);
        } else if constexpr (std::is_same_v<Given, SetSession>) {
          out.mutable_set_session()->set_id(given.session);
          if (given.port) out.mutable_set_session()->set_port(*given.port);
          if (given.group) out.mutable_set_session()->set_group(*given.group);
        } else if constexpr (std::is_same_v<Given, DeleteSession>) {
          out.set_delete_session(given.session);
        } else if constexpr (std::is_same_v<Given, CreateGroup>) {
          out.set_create_group(given.group);
        } else if constexpr (std::is_same_v<Given, DeleteGroup>) {
          out.set_delete_group(given.group);
        } else if constexpr (std::is_same_v<Given, CreateNode>) {
          out.mutable_create_node()->set_rid(given.rid);
          for (const uint32_t port : given.ports) out.mutable_create_node()->add_ports(port);
        } else if constexpr (std::is_same_v<Given, UpdateNode>) {
          out.mutable_update_node()->set_node(given.node);
          for (const uint32_t port : given.ports) out.mutable_update_node()->add_ports(port);
        } else if constexpr (std::is_same_v<Given, Associate>) {
          out.mutable_associate()->set_group(given.group);
          out.mutable_associate()->set_node(given.node);
        } else if constexpr (std::is_same_v<Given, WriteCounter>) {
          out.mutable_write_counter()->set_name(counter(given.name));
          out.mutable_write_counter()->set_index(given.index);
          out.mutable_write_counter()->mutable_value()->set_packets(given.packets);
          out.mutable_write_counter()->mutable_value()->set_bytes(given.bytes);
        } else if constexpr (std::is_same_v<Given, WriteRegister>) {
          const Program::Register& found = reg(given.name);
          out.mutable_write_register()->set_name(found.name());
          out.mutable_write_register()->set_index(given.index);
          out.mutable_write_register()->set_value(
              valueBytes(given.value, found.width(), "register " + found.name()));
        } else if constexpr (std::is_same_v<Given, ResetRegister>) {
          const Program::Register& found = reg(given.name);
          out.mutable_write_register()->set_name(found.name());
          out.mutable_write_register()->set_value(std::string(bytesOf(found.width()), '\0'));
        } else if constexpr (std::is_same_v<Given, SetMeter>) {
          out.mutable_set_meter_rates()->set_name(meter(given.name).name());
          if (given.index) out.mutable_set_meter_rates()->set_index(*given.index);
          *out.mutable_set_meter_rates()->mutable_rates()->mutable_committed() =
              rateOf(given.committed);
          *out.mutable_set_meter_rates()->mutable_rates()->mutable_peak() = rateOf(given.peak);
        } else if constexpr (std::is_same_v<Given, ChangeValueSet>) {
          fill(given, out.mutable_change_value_set());
        } else {
          throw Error(std::string(wordOf(given)) + " belongs to packet tests: it sets nothing up");
        }
      },
      command);
  return out;
}

}  // namespace stf
