// Arrays that stay from packet to packet, and lists of fields.
#include "model/program/v1model/draft.h"

namespace jxmodel::v1model {
namespace {

constexpr uint64_t kCounterCellBytes = 16;  // packets and bytes
static_assert(kMaxStateBytes / kCounterCellBytes <= kMaxTableSize, "counters become tables");
constexpr uint64_t kMeterCellBytes = 128;  // rates, bursts, buckets

uint32_t readSize(const Node& item, const std::string& construct, uint64_t cell_bytes,
                  Draft* draft) {
  const Node size = item.at("size");
  const uint64_t cells = size.count();
  if (cells == 0) size.fail(construct + ": size 0 is below 1");
  reserveState(size, construct, cells, cell_bytes, draft);
  return static_cast<uint32_t>(cells);
}

void readRegisters(const Node& root, Draft* draft) {
  for (const Node& node : itemsOf(root, "register_arrays")) {
    MachineRegister array;
    array.name = draft->symbols.registers.declare(node);
    const std::string construct = "register " + shown(array.name);
    within(construct, [&] {
      array.width = node.at("bitwidth").number(1, kMaxArithmeticWidth);
      array.size = readSize(node, construct, bytesOf(array.width), draft);
    });
    draft->machine.registers.push_back(std::move(array));
  }
}

bool isDirect(const Node& node) {
  const auto direct = node.findValue("is_direct");
  return direct && direct->boolean();
}

DeclaredArray readDeclared(const Node& node, std::string name, const std::string& construct,
                           uint64_t cell_bytes, Draft* draft) {
  DeclaredArray array;
  array.name = std::move(name);
  if (isDirect(node)) {
    array.binding = node.at("binding");
  } else {
    array.size = readSize(node, construct, cell_bytes, draft);
  }
  return array;
}

void readCounters(const Node& root, Draft* draft) {
  for (const Node& node : itemsOf(root, "counter_arrays")) {
    const std::string name = draft->symbols.counters.declare(node);
    const std::string construct = "counter " + shown(name);
    within(construct, [&] {
      draft->counters.push_back(readDeclared(node, name, construct, kCounterCellBytes, draft));
    });
    draft->machine.counters.push_back({name, 0});
  }
}

// Whether it counts bytes.
bool readMeterType(const Node& node) {
  const std::string& type = node.string();
  if (type != "bytes" && type != "packets") node.fail("type " + shown(type) + " is not known");
  return type == "bytes";
}

void readMeter(const Node& node, const std::string& construct, Draft* draft, MachineMeter* meter) {
  meter->counts_bytes = readMeterType(node.at("type"));
  const auto rates = node.findValue("rate_count");
  if (rates && rates->number(0, UINT32_MAX) != 2) rates->fail("a meter has 2 rates");
  draft->meters.push_back(readDeclared(node, meter->name, construct, kMeterCellBytes, draft));
  meter->size = draft->meters.back().size;
  const auto result = node.findValue("result_target");
  if (result && draft->meters.back().binding) {
    meter->result = FieldTarget{resolveValueField(*result, *draft)};
  }
  draft->notices.push_back(construct + ": packets are green until rates are set");
}

void readMeters(const Node& root, Draft* draft) {
  for (const Node& node : itemsOf(root, "meter_arrays")) {
    MachineMeter meter;
    meter.name = draft->symbols.meters.declare(node);
    const std::string construct = "meter " + shown(meter.name);
    within(construct, [&] { readMeter(node, construct, draft, &meter); });
    draft->machine.meters.push_back(std::move(meter));
  }
}

uint32_t readListField(const Node& element, const Draft& draft) {
  if (element.at("type").string() != "field") element.fail("must be a field");
  return resolveValueField(element.at("value"), draft);
}

// Two digests of one struct have lists of one name.
std::string freeLearnName(const std::string& name, Draft* draft) {
  Names& names = draft->symbols.learn_names;
  auto number = static_cast<uint32_t>(draft->out.program.learns.size());
  std::string free = name;
  while (names.has(free)) free = name + "_" + std::to_string(++number);
  names.add(free, number);
  return free;
}

void readLearn(const Node& node, const std::string& name, Draft* draft) {
  Program& program = draft->out.program;
  Learn learn;
  learn.name = freeLearnName(name, draft);
  MachineLearn fields;
  for (const Node& element : node.at("elements").items(1, kMaxNamed)) {
    const uint32_t index = readListField(element, *draft);
    const MachineField& field = draft->machine.fields[index];
    if (field.varbit) {
      element.fail("field " + nameOfField(field, draft->machine) + " is a varbit");
    }
    fields.fields.push_back(index);
    learn.fields.push_back({0, static_cast<uint32_t>(program.fields.size())});
    program.fields.push_back({"f" + std::to_string(learn.fields.size() - 1), field.width});
  }
  program.learns.push_back(std::move(learn));
  draft->machine.learns.push_back(std::move(fields));
}

void readLearns(const Node& root, Draft* draft) {
  for (const Node& node : itemsOf(root, "learn_lists")) {
    const std::string& name = node.at("name").string();
    draft->symbols.learns.declare(node);
    within("learn list " + shown(name), [&] { readLearn(node, name, draft); });
  }
}

// A header stands for all its fields.
void addListElement(const Node& element, const Draft& draft, FieldList* list) {
  if (element.at("type").string() != "header") {
    list->fields.push_back(readListField(element, draft));
    return;
  }
  const uint32_t index = draft.symbols.headers.names.resolve(element.at("value"));
  const MachineHeader& header = draft.machine.headers[index];
  for (uint32_t i = 0; i < header.field_count; ++i) list->fields.push_back(header.first_field + i);
}

void readFieldLists(const Node& root, Draft* draft) {
  for (const Node& node : itemsOf(root, "field_lists")) {
    FieldList list;
    list.name = node.at("name").string();
    draft->symbols.field_lists.declare(node);
    within("field list " + shown(list.name), [&] {
      for (const Node& element : itemsOf(node.at("elements"))) {
        addListElement(element, *draft, &list);
      }
    });
    draft->machine.field_lists.push_back(std::move(list));
  }
}

}  // namespace

void reserveState(const Node& size, const std::string& construct, uint64_t cells,
                  uint64_t cell_bytes, Draft* draft) {
  const uint64_t limit = (kMaxStateBytes - draft->state_bytes) / cell_bytes;
  if (cells > limit) {
    size.fail(construct + ": size " + std::to_string(cells) + " is above the limit " +
              std::to_string(limit));
  }
  draft->state_bytes += cells * cell_bytes;
}

void readStateful(const Node& root, Draft* draft) {
  readRegisters(root, draft);
  readCounters(root, draft);
  readMeters(root, draft);
  readLearns(root, draft);
  readFieldLists(root, draft);
}

}  // namespace jxmodel::v1model
