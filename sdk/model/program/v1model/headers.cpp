// Header types, headers, stacks, unions, and the names by which fields are found.
#include <algorithm>

#include "model/program/v1model/draft.h"

namespace jxmodel::v1model {
namespace {

std::string bitsText(uint64_t bits) { return std::to_string(bits) + " bits"; }

// Behind the width: true or a number other than 0.
bool readSign(const Node& node) {
  return node.isBoolean() ? node.boolean() : node.number(0, UINT32_MAX) != 0;
}

MachineField readTypeField(const Node& node) {
  const std::vector<Node> items = node.items(2, 3);
  MachineField field;
  field.name = items[0].string();
  if (field.name.empty() || field.name == "$valid$") items[0].fail("is no name of a field");
  field.varbit = items[1].isString() && items[1].string() == "*";
  if (!field.varbit) field.width = items[1].number(1, kMaxHeaderBits);
  field.is_signed = items.size() == 3 && readSign(items[2]);
  return field;
}

void addTypeField(const Node& node, const std::string& type_name, HeaderType* type) {
  MachineField field = readTypeField(node);
  const auto number = static_cast<uint32_t>(type->fields.size());
  if (!type->numbers.emplace(field.name, number).second) {
    node.fail("field " + shown(field.name) + " is declared twice");
  }
  if (field.varbit && type->varbit) {
    node.fail("header " + shown(type_name) + " has two varbits, at most one is possible");
  }
  if (field.varbit) type->varbit = number;
  type->fixed_bits += field.width;
  if (type->fixed_bits > kMaxHeaderBits) {
    node.fail("more than " + bitsText(kMaxHeaderBits) + " in one header");
  }
  type->fields.push_back(std::move(field));
}

void readVarbitLength(const Node& node, HeaderType* type) {
  type->max_bytes = bytesOf(type->fixed_bits);
  if (!type->varbit) return;
  const Node length = node.at("max_length");
  type->max_bytes = length.number(1, kMaxHeaderBits / 8);
  if (type->max_bytes * 8 < type->fixed_bits) {
    length.fail("max_length " + std::to_string(type->max_bytes) + " is below the " +
                bitsText(type->fixed_bits) + " of the other fields");
  }
  type->fields[*type->varbit].width = type->max_bytes * 8 - type->fixed_bits;
}

HeaderType readType(const Node& node, const std::string& name) {
  HeaderType type;
  for (const Node& field : itemsOf(node.at("fields"))) addTypeField(field, name, &type);
  readVarbitLength(node, &type);
  if (const auto length = node.findValue("length_exp")) {
    length->fail("the expression length_exp is not supported");
  }
  return type;
}

void readTypes(const Node& root, Draft* draft) {
  Symbols& symbols = draft->symbols;
  for (const Node& node : itemsOf(root, "header_types")) {
    const std::string name = symbols.header_types.declare(node);
    symbols.types.push_back(within("header " + shown(name), [&] { return readType(node, name); }));
  }
}

void addHeaderFields(const HeaderType& type, uint32_t index, MachineHeader* header,
                     Machine* machine) {
  header->first_field = static_cast<uint32_t>(machine->fields.size());
  header->field_count = static_cast<uint32_t>(type.fields.size());
  header->fixed_bits = type.fixed_bits;
  header->max_bytes = type.max_bytes;
  if (type.varbit) header->varbit_field = header->first_field + *type.varbit;
  for (MachineField field : type.fields) {
    field.header = index;
    machine->fields.push_back(std::move(field));
  }
}

// The bits of all headers so far.
uint64_t readHeader(const Node& node, uint64_t bits, Draft* draft) {
  Symbols& symbols = draft->symbols;
  MachineHeader header;
  header.name = symbols.headers.declare(node);
  const uint32_t type_index = symbols.header_types.names.resolve(node.at("header_type"));
  const HeaderType& type = symbols.types[type_index];
  header.metadata = node.at("metadata").boolean();
  if (!header.metadata && type.fixed_bits % 8 != 0) {
    node.fail("header " + shown(header.name) + " has " + bitsText(type.fixed_bits) +
              ", not whole bytes");
  }
  bits += uint64_t{type.max_bytes} * 8;
  if (bits > kMaxPacketBits || draft->machine.fields.size() > kMaxItems) {
    node.fail("the headers of the program are larger than " + bitsText(kMaxPacketBits));
  }
  const auto index = static_cast<uint32_t>(draft->machine.headers.size());
  addHeaderFields(type, index, &header, &draft->machine);
  symbols.type_of.push_back(type_index);
  draft->machine.headers.push_back(std::move(header));
  return bits;
}

void checkStackSize(const Node& node, size_t elements) {
  const Node size = node.at("size");
  if (size.number(1, kMaxHeaderBits) != elements) {
    size.fail("size " + std::to_string(size.number(1, kMaxHeaderBits)) + ", but there are " +
              std::to_string(elements) + " elements");
  }
}

void readStacks(const Node& root, Draft* draft) {
  Symbols& symbols = draft->symbols;
  for (const Node& node : itemsOf(root, "header_stacks")) {
    HeaderStack stack;
    stack.name = symbols.stacks.declare(node);
    const uint32_t type = symbols.header_types.names.resolve(node.at("header_type"));
    const Node list = node.at("header_ids");
    if (list.isList() && list.items(0, kMaxItems).empty()) {
      list.fail("header stack " + shown(stack.name) + " has no elements");
    }
    for (const Node& element : list.items(1, kMaxItems)) {
      const uint32_t header = symbols.headers.ids.resolve(element);
      if (symbols.type_of[header] != type) element.fail("the header has another type");
      stack.headers.push_back(header);
    }
    checkStackSize(node, stack.headers.size());
    draft->machine.stacks.push_back(std::move(stack));
  }
}

void readUnionTypes(const Node& root, Draft* draft) {
  Symbols& symbols = draft->symbols;
  for (const Node& node : itemsOf(root, "header_union_types")) {
    symbols.union_types.declare(node);
    UnionType type;
    for (const Node& member : node.at("headers").items(1, 0xFFFF)) {
      const std::vector<Node> items = member.items(2, 2);
      type.members.emplace_back(items[0].string(), symbols.header_types.names.resolve(items[1]));
    }
    symbols.unions_of_type.push_back(std::move(type));
  }
}

void readUnion(const Node& node, Draft* draft) {
  Symbols& symbols = draft->symbols;
  HeaderUnion header_union;
  header_union.name = symbols.unions.declare(node);
  const uint32_t type = symbols.union_types.resolve(node.at("union_type"));
  const auto& members = symbols.unions_of_type[type].members;
  const std::vector<Node> ids = node.at("header_ids").items(members.size(), members.size());
  const auto index = static_cast<uint32_t>(draft->machine.unions.size());
  for (size_t i = 0; i < ids.size(); ++i) {
    const uint32_t header = symbols.headers.ids.resolve(ids[i]);
    if (symbols.type_of[header] != members[i].second) ids[i].fail("the header has another type");
    if (draft->machine.headers[header].in_union) ids[i].fail("the header is in two unions");
    draft->machine.headers[header].in_union = index;
    header_union.headers.push_back(header);
  }
  symbols.type_of_union.push_back(type);
  draft->machine.unions.push_back(std::move(header_union));
}

void readUnionStacks(const Node& root, Draft* draft) {
  Symbols& symbols = draft->symbols;
  for (const Node& node : itemsOf(root, "header_union_stacks")) {
    UnionStack stack;
    stack.name = symbols.union_stacks.declare(node);
    const uint32_t type = symbols.union_types.resolve(node.at("union_type"));
    const Node list = node.at("header_union_ids");
    for (const Node& element : list.items(1, kMaxItems)) {
      const uint32_t index = symbols.unions.ids.resolve(element);
      if (symbols.type_of_union[index] != type) element.fail("the header union has another type");
      stack.unions.push_back(index);
    }
    checkStackSize(node, stack.unions.size());
    draft->machine.union_stacks.push_back(std::move(stack));
  }
}

// Header and field number; the field is not there where `field` is none of the header's.
std::optional<NamedField> findField(const std::string& header, const std::string& field,
                                    const Draft& draft) {
  const Symbols& symbols = draft.symbols;
  const auto index = symbols.headers.names.find(header);
  if (!index) return std::nullopt;
  if (field == "$valid$") return NamedField{*index, std::nullopt};
  const auto& numbers = symbols.types[symbols.type_of[*index]].numbers;
  const auto number = numbers.find(field);
  if (number == numbers.end()) return std::nullopt;
  return NamedField{*index, number->second};
}

void readAliases(const Node& root, Draft* draft) {
  for (const Node& node : itemsOf(root, "field_aliases")) {
    const std::vector<Node> items = node.items(2, 2);
    const std::string& alias = items[0].string();
    const std::vector<Node> target = items[1].items(2, 2);
    const auto field = findField(target[0].string(), target[1].string(), *draft);
    if (!field || !field->number) {
      items[1].fail("field " + shown(target[0].string() + "." + target[1].string()) +
                    " does not exist");
    }
    const size_t dot = alias.find('.');
    if (dot == std::string::npos) items[0].fail("an alias has a dot between header and field");
    draft->symbols.aliases[{alias.substr(0, dot), alias.substr(dot + 1)}] = {field->header,
                                                                             *field->number};
  }
}

struct StandardRow {
  const char* name;
  std::optional<uint32_t> StandardFields::*field;
};
constexpr StandardRow kStandard[] = {
    {"ingress_port", &StandardFields::ingress_port},
    {"egress_spec", &StandardFields::egress_spec},
    {"egress_port", &StandardFields::egress_port},
    {"instance_type", &StandardFields::instance_type},
    {"packet_length", &StandardFields::packet_length},
    {"ingress_global_timestamp", &StandardFields::ingress_global_timestamp},
    {"egress_global_timestamp", &StandardFields::egress_global_timestamp},
    {"mcast_grp", &StandardFields::mcast_grp},
    {"egress_rid", &StandardFields::egress_rid},
    {"checksum_error", &StandardFields::checksum_error},
    {"parser_error", &StandardFields::parser_error},
};

// Of the header, or where an alias or a header of its own has it.
std::optional<uint32_t> findStandard(const char* name, const Draft& draft) {
  auto found = findField("standard_metadata", name, draft);
  if (!found) found = findField("intrinsic_metadata", name, draft);
  if (found) return draft.machine.headers[found->header].first_field + *found->number;
  const auto alias = draft.symbols.aliases.find({"intrinsic_metadata", name});
  if (alias == draft.symbols.aliases.end()) return std::nullopt;
  return draft.machine.headers[alias->second.first].first_field + alias->second.second;
}

void findStandardFields(const Node& root, Draft* draft) {
  const auto header = draft->symbols.headers.names.find("standard_metadata");
  if (!header) root.fail("header standard_metadata does not exist");
  draft->machine.standard.header = *header;
  for (const StandardRow& row : kStandard) {
    draft->machine.standard.*row.field = findStandard(row.name, *draft);
  }
}

struct ErrorRow {
  const char* name;
  uint32_t ParserErrors::*number;
};
constexpr ErrorRow kErrors[] = {
    {"NoError", &ParserErrors::no_error},
    {"PacketTooShort", &ParserErrors::packet_too_short},
    {"NoMatch", &ParserErrors::no_match},
    {"StackOutOfBounds", &ParserErrors::stack_out_of_bounds},
    {"HeaderTooShort", &ParserErrors::header_too_short},
    {"ParserTimeout", &ParserErrors::parser_timeout},
    {"ParserInvalidArgument", &ParserErrors::parser_invalid_argument},
};

}  // namespace

void readHeaders(const Node& root, Draft* draft) {
  readTypes(root, draft);
  uint64_t bits = 0;
  for (const Node& node : itemsOf(root, "headers")) bits = readHeader(node, bits, draft);
  readStacks(root, draft);
  readUnionTypes(root, draft);
  for (const Node& node : itemsOf(root, "header_unions")) readUnion(node, draft);
  readUnionStacks(root, draft);
  readAliases(root, draft);
  findStandardFields(root, draft);
}

void readErrors(const Node& root, Draft* draft) {
  ParserErrors& errors = draft->machine.errors;
  for (const Node& node : itemsOf(root, "errors")) {
    const std::vector<Node> items = node.items(2, 2);
    const std::string& name = items[0].string();
    const uint32_t number = items[1].number(0, UINT32_MAX);
    errors.names.emplace_back(name, number);
    for (const ErrorRow& row : kErrors) {
      if (name == row.name) errors.*row.number = number;
    }
  }
}

NamedField resolveField(const Node& node, const Draft& draft) {
  const std::vector<Node> items = node.items(2, 2);
  const std::string& header = items[0].string();
  const std::string& field = items[1].string();
  if (const auto found = findField(header, field, draft)) return *found;
  const auto alias = draft.symbols.aliases.find({header, field});
  if (alias != draft.symbols.aliases.end()) return {alias->second.first, alias->second.second};
  if (!draft.symbols.headers.names.has(header)) {
    items[0].fail("header " + shown(header) + " does not exist");
  }
  items[1].fail("field " + shown(header + "." + field) + " does not exist");
}

uint32_t resolveValueField(const Node& node, const Draft& draft) {
  const NamedField named = resolveField(node, draft);
  if (!named.number) node.fail("$valid$ is no field that has a place in a header");
  return draft.machine.headers[named.header].first_field + *named.number;
}

std::string nameOfField(const MachineField& field, const Machine& machine) {
  return machine.headers[field.header].name + "." + field.name;
}

}  // namespace jxmodel::v1model
