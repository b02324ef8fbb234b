#include "unit/machine/machine_builder.h"

#include <algorithm>
#include <stdexcept>

#include "model/runtime/rt_info.h"

namespace jxmachinetest {
namespace {

using namespace jxmodel;

struct Recorded final : Egress {
  void send(uint32_t port, PacketBuffer&& packet) override {
    sent.push_back(std::to_string(port) + ": " +
                   hex({packet.data(), packet.data() + packet.size()}));
  }
  void flood(uint32_t, PacketBuffer&&) override { sent.emplace_back("flood"); }
  std::vector<std::string> sent;
};

}  // namespace

Bytes bytes(const std::string& hex) {
  std::string digits;
  std::copy_if(hex.begin(), hex.end(), std::back_inserter(digits),
               [](char digit) { return digit != ' '; });
  Bytes all;
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    all.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  }
  return all;
}

std::string hex(const Bytes& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

Builder::Builder() {
  const uint32_t standard =
      addHeader("standard_metadata", {9, 9, 9, 32, 32, 48, 48, 16, 16, 1, 32}, true);
  StandardFields& fields = machine.standard;
  fields.header = standard;
  ingress_port = *(fields.ingress_port = field(standard, 0));
  egress_spec = *(fields.egress_spec = field(standard, 1));
  egress_port = *(fields.egress_port = field(standard, 2));
  instance_type = *(fields.instance_type = field(standard, 3));
  packet_length = *(fields.packet_length = field(standard, 4));
  fields.ingress_global_timestamp = field(standard, 5);
  fields.egress_global_timestamp = field(standard, 6);
  mcast_grp = *(fields.mcast_grp = field(standard, 7));
  egress_rid = *(fields.egress_rid = field(standard, 8));
  checksum_error = *(fields.checksum_error = field(standard, 9));
  parser_error = *(fields.parser_error = field(standard, 10));
  machine.errors.names = {{"NoError", 0},
                          {"PacketTooShort", 1},
                          {"NoMatch", 2},
                          {"StackOutOfBounds", 3},
                          {"HeaderTooShort", 4},
                          {"ParserTimeout", 5},
                          {"ParserInvalidArgument", 6}};
  program.id = 1;
  program.name = "hand_made";
}

uint32_t Builder::addHeader(const std::string& name, const std::vector<uint32_t>& widths,
                            bool metadata) {
  MachineHeader made;
  made.name = name;
  made.metadata = metadata;
  made.first_field = static_cast<uint32_t>(machine.fields.size());
  made.field_count = static_cast<uint32_t>(widths.size());
  const auto index = static_cast<uint32_t>(machine.headers.size());
  for (const uint32_t width : widths) {
    MachineField field;
    field.name = "f" + std::to_string(machine.fields.size() - made.first_field);
    field.header = index;
    field.width = width;
    machine.fields.push_back(field);
    made.fixed_bits += width;
  }
  made.max_bytes = made.fixed_bits / 8;
  machine.headers.push_back(made);
  if (!metadata) machine.deparser.push_back(index);
  return index;
}

uint32_t Builder::header(const std::string& name, const std::vector<uint32_t>& widths) {
  return addHeader(name, widths, false);
}

uint32_t Builder::varbitHeader(const std::string& name, const std::vector<uint32_t>& widths,
                               uint32_t max_bits) {
  const uint32_t index = addHeader(name, widths, false);
  MachineHeader& made = machine.headers[index];
  MachineField field;
  field.name = "options";
  field.header = index;
  field.width = max_bits;
  field.varbit = true;
  made.varbit_field = static_cast<uint32_t>(machine.fields.size());
  machine.fields.push_back(field);
  ++made.field_count;
  made.max_bytes += max_bits / 8;
  return index;
}

uint32_t Builder::metadata(const std::string& name, const std::vector<uint32_t>& widths) {
  return addHeader(name, widths, true);
}

uint32_t Builder::stack(const std::string& name, uint32_t size,
                        const std::vector<uint32_t>& widths) {
  HeaderStack made;
  made.name = name;
  for (uint32_t i = 0; i < size; ++i) {
    made.headers.push_back(header(name + '[' + std::to_string(i) + ']', widths));
  }
  machine.stacks.push_back(made);
  return static_cast<uint32_t>(machine.stacks.size()) - 1;
}

uint32_t Builder::unionOf(const std::string& name, const std::vector<uint32_t>& headers) {
  const auto index = static_cast<uint32_t>(machine.unions.size());
  machine.unions.push_back({name, headers});
  for (const uint32_t member : headers) machine.headers[member].in_union = index;
  return index;
}

uint32_t Builder::field(uint32_t header, uint32_t number) const {
  return machine.headers[header].first_field + number;
}

Expression Builder::constant(uint64_t value) {
  Bytes magnitude;
  for (; value != 0; value >>= 8) {
    magnitude.insert(magnitude.begin(), static_cast<uint8_t>(value));
  }
  return constant(false, magnitude);
}

Expression Builder::constant(bool negative, const Bytes& magnitude) {
  machine.constants.push_back({negative, magnitude});
  return code(ExprOp::kConstant, static_cast<uint32_t>(machine.constants.size()) - 1);
}

Expression Builder::unary(ExprOp op, Expression value, uint32_t a, uint32_t b) {
  value.push_back({op, a, b});
  return value;
}

Expression Builder::binary(ExprOp op, Expression left, const Expression& right) {
  left.insert(left.end(), right.begin(), right.end());
  left.push_back({op, 0, 0});
  return left;
}

void Builder::append(std::vector<uint32_t>* nodes, std::vector<MachineStep> steps) {
  MachineAction action;
  action.name = "action_" + std::to_string(machine.actions.size());
  action.steps = std::move(steps);
  machine.actions.push_back(std::move(action));
  MachineNode node;
  node.name = "call_" + std::to_string(machine.nodes.size());
  CallNode call;
  call.action = static_cast<uint32_t>(machine.actions.size()) - 1;
  node.node = call;
  const auto index = static_cast<uint32_t>(machine.nodes.size());
  machine.nodes.push_back(node);
  if (!nodes->empty()) std::get<CallNode>(machine.nodes[nodes->back()].node).next = index;
  nodes->push_back(index);
}

uint32_t Builder::state(std::vector<ParserOp> ops) {
  ParserState made;
  made.name = "state_" + std::to_string(machine.states.size());
  made.ops = std::move(ops);
  machine.states.push_back(std::move(made));
  if (!machine.first_state) machine.first_state = 0;
  return static_cast<uint32_t>(machine.states.size()) - 1;
}

void Builder::goOn(uint32_t state, uint32_t next) {
  Transition transition;
  transition.next = next;
  machine.states[state].transitions.push_back(transition);
}

Bench::Bench(Builder builder) {
  if (!builder.ingress_.empty()) builder.machine.ingress = builder.ingress_.front();
  if (!builder.egress_.empty()) builder.machine.egress = builder.egress_.front();
  auto program = std::make_shared<Program>(std::move(builder.program));
  program->machine = std::make_shared<Machine>(std::move(builder.machine));
  std::string error;
  device_ = Device::create(1, Device::Kind::kPhysical, {std::move(program)}, 0, &error);
  if (device_ == nullptr) throw std::runtime_error(error);
  pipeline_ = std::make_unique<Pipeline>(device_->core(), device_->forwarding());
}

std::vector<std::string> Bench::run(const std::string& packet, uint32_t port) {
  return run(bytes(packet), port);
}

std::vector<std::string> Bench::run(const Bytes& packet, uint32_t port) {
  Recorded egress;
  pipeline_->forward(port, PacketBuffer(packet.data(), packet.size()), egress, &digests);
  return egress.sent;
}

Trace Bench::trace(const std::string& packet, uint32_t port) {
  Bytes data = bytes(packet);
  const auto size = static_cast<uint32_t>(data.size());
  Trace trace;
  pipeline_->run({data.data(), size, size, port}, nullptr, &trace);
  return trace;
}

TableState& Bench::table(uint32_t index) { return *device_->infos().front()->states()[index]; }

uint64_t Bench::happened(const std::string& what) const {
  for (const PipelineCounts::Happened& one : pipeline_->counts().happened) {
    if (one.what == what) return one.times;
  }
  return 0;
}

uint64_t Bench::registerValue(uint32_t reg, uint32_t index) {
  Bytes value;
  const std::string error = settings().readRegister(reg, index, &value);
  if (!error.empty()) throw std::runtime_error(error);
  uint64_t number = 0;
  for (const uint8_t byte : value) number = number << 8 | byte;
  return number;
}

}  // namespace jxmachinetest
