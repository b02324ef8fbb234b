#include "model/rpc/machine_settings.h"

#include <algorithm>
#include <string>
#include <vector>

namespace jxmodel::control {
namespace {

namespace pb = jx::control::v1;
using grpc::StatusCode;

constexpr uint32_t kCellsPerMessage = 65536;

/// What the settings answered: nothing where all was done.
grpc::Status settled(const std::string& reason) {
  if (reason.empty()) return grpc::Status::OK;
  return {StatusCode::INVALID_ARGUMENT, reason};
}

/// The place of the named one in a list of the machine.
template <typename Item>
grpc::Status find(const std::vector<Item>& items, const char* kind, const std::string& name,
                  uint32_t* index) {
  const auto found = std::find_if(items.begin(), items.end(),
                                  [&name](const Item& item) { return item.name == name; });
  if (found == items.end()) {
    return {StatusCode::NOT_FOUND, std::string("there is no ") + kind + ' ' + name};
  }
  *index = static_cast<uint32_t>(found - items.begin());
  return grpc::Status::OK;
}

std::vector<uint8_t> bytesOfText(const std::string& text) { return {text.begin(), text.end()}; }
std::string textOfBytes(const std::vector<uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

MachineSettings::Rate rateOf(const pb::MeterRate& rate) {
  return {rate.per_second(), rate.burst()};
}

void describe(const MachineSettings::Rate& rate, pb::MeterRate* out) {
  out->set_per_second(rate.per_second);
  out->set_burst(rate.burst);
}

std::vector<uint32_t> sorted(const google::protobuf::RepeatedField<uint32_t>& ports) {
  std::vector<uint32_t> out(ports.begin(), ports.end());
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return out;
}

/// Empty where all of them are ports of a switch.
std::string portError(const std::vector<uint32_t>& ports) {
  const auto bad =
      std::find_if(ports.begin(), ports.end(), [](uint32_t port) { return port >= kDropPort; });
  if (bad == ports.end()) return {};
  return "port " + std::to_string(*bad) + " does not exist: ports end at " +
         std::to_string(kDropPort - 1);
}

}  // namespace

grpc::Status cellsOf(const pb::ReadCellsRequest& request, uint32_t size, uint32_t* end) {
  if (request.first() >= size) {
    return {StatusCode::INVALID_ARGUMENT, request.name() + " has no index " +
                                              std::to_string(request.first()) +
                                              ": its last one is " + std::to_string(size - 1)};
  }
  const uint32_t count = std::min(request.count(), kCellsPerMessage);
  *end = request.first() + std::min(count, size - request.first());
  return grpc::Status::OK;
}

grpc::Status MachineMessages::apply(const Change& request, pb::ApplyReply* reply) {
  switch (request.change_case()) {
    case Change::kWriteRegister:
      return writeRegister(request.write_register());
    case Change::kSetMeterRates:
      return setMeterRates(request.set_meter_rates());
    case Change::kChangeValueSet:
      return changeValueSet(request.change_value_set());
    case Change::kCreateGroup:
      return settled(settings_.createGroup(request.create_group()));
    case Change::kDeleteGroup:
      return settled(settings_.deleteGroup(request.delete_group()));
    case Change::kCreateNode: {
      const std::vector<uint32_t> ports = sorted(request.create_node().ports());
      const std::string error = portError(ports);
      if (error.empty())
        reply->set_node(settings_.createNode({request.create_node().rid(), ports}));
      return settled(error);
    }
    case Change::kUpdateNode: {
      const std::vector<uint32_t> ports = sorted(request.update_node().ports());
      const std::string error = portError(ports);
      return settled(error.empty() ? settings_.updateNode(request.update_node().node(), ports)
                                   : error);
    }
    case Change::kAssociate:
      return settled(settings_.associate(request.associate().group(), request.associate().node()));
    case Change::kSetSession: {
      const pb::CloneSession& wanted = request.set_session();
      MachineSettings::Session session;
      session.id = wanted.id();
      if (wanted.has_port()) session.port = wanted.port();
      if (wanted.has_group()) session.group = wanted.group();
      const std::string error = session.port ? portError({*session.port}) : std::string();
      return settled(error.empty() ? settings_.setSession(session) : error);
    }
    case Change::kDeleteSession:
      return settled(settings_.deleteSession(request.delete_session()));
    default:
      return {StatusCode::INVALID_ARGUMENT, "a request without a change that is known"};
  }
}

grpc::Status MachineMessages::writeRegister(const Change::WriteRegister& change) {
  uint32_t reg = 0;
  grpc::Status found = find(machine_.registers, "register", change.name(), &reg);
  if (!found.ok()) return found;
  const std::vector<uint8_t> value = bytesOfText(change.value());
  if (change.has_index()) return settled(settings_.writeRegister(reg, change.index(), value));
  const bool zero = std::all_of(value.begin(), value.end(), [](uint8_t byte) { return byte == 0; });
  if (zero) return settled(settings_.resetRegister(reg));
  return settled("register " + change.name() + ": all cells can be set to 0 only: give an index");
}

grpc::Status MachineMessages::setMeterRates(const Change::SetMeterRates& change) {
  uint32_t meter = 0;
  grpc::Status found = find(machine_.meters, "meter", change.name(), &meter);
  if (!found.ok()) return found;
  std::optional<MachineSettings::Rates> rates;
  if (change.has_rates()) {
    rates = {rateOf(change.rates().committed()), rateOf(change.rates().peak())};
  }
  if (!change.has_index()) return settled(settings_.setAllMeterRates(meter, rates));
  return settled(settings_.setMeterRates(meter, change.index(), rates));
}

grpc::Status MachineMessages::changeValueSet(const Change::ChangeValueSet& change) {
  uint32_t set = 0;
  grpc::Status found = find(machine_.value_sets, "value set", change.name(), &set);
  if (!found.ok()) return found;
  const MachineSettings::Member member{bytesOfText(change.member().value()),
                                       bytesOfText(change.member().mask())};
  return settled(change.remove() ? settings_.removeMember(set, member)
                                 : settings_.addMember(set, member));
}

void MachineMessages::list(pb::SettingsReply* reply) const {
  for (uint32_t i = 0; i < machine_.value_sets.size(); ++i) {
    const ValueSet& set = machine_.value_sets[i];
    pb::SettingsReply::ValueSet* const out = reply->add_value_sets();
    out->set_name(set.name);
    out->set_width(set.compressed_width);
    out->set_size(set.size);
    for (const MachineSettings::Member& member : settings_.members(i)) {
      pb::ValueSetMember* const added = out->add_members();
      added->set_value(textOfBytes(member.value));
      added->set_mask(textOfBytes(member.mask));
    }
  }
  for (const MachineSettings::Node& node : settings_.nodes()) {
    pb::SettingsReply::Node* const out = reply->add_nodes();
    out->set_rid(node.rid);
    out->mutable_ports()->Add(node.ports.begin(), node.ports.end());
  }
  for (const MachineSettings::Group& group : settings_.groups()) {
    pb::SettingsReply::Group* const out = reply->add_groups();
    out->set_id(group.id);
    out->mutable_nodes()->Add(group.nodes.begin(), group.nodes.end());
  }
  for (const MachineSettings::Session& session : settings_.sessions()) {
    pb::CloneSession* const out = reply->add_sessions();
    out->set_id(session.id);
    if (session.port) out->set_port(*session.port);
    if (session.group) out->set_group(*session.group);
  }
}

grpc::Status MachineMessages::read(const pb::ReadCellsRequest& request,
                                   pb::ReadCellsReply* reply) const {
  if (request.kind() == request.KIND_REGISTER) return readRegister(request, reply);
  if (request.kind() == request.KIND_METER) return readMeter(request, reply);
  return {StatusCode::INVALID_ARGUMENT, "cells are those of registers, meters and counters"};
}

grpc::Status MachineMessages::readRegister(const pb::ReadCellsRequest& request,
                                           pb::ReadCellsReply* reply) const {
  uint32_t reg = 0;
  grpc::Status found = find(machine_.registers, "register", request.name(), &reg);
  uint32_t end = 0;
  if (found.ok()) found = cellsOf(request, machine_.registers[reg].size, &end);
  std::vector<uint8_t> value;
  for (uint32_t i = request.first(); found.ok() && i < end; ++i) {
    found = settled(settings_.readRegister(reg, i, &value));
    if (found.ok()) reply->add_cells()->set_register_value(textOfBytes(value));
  }
  return found;
}

grpc::Status MachineMessages::readMeter(const pb::ReadCellsRequest& request,
                                        pb::ReadCellsReply* reply) const {
  uint32_t meter = 0;
  grpc::Status found = find(machine_.meters, "meter", request.name(), &meter);
  uint32_t end = 0;
  if (found.ok()) found = cellsOf(request, machine_.meters[meter].size, &end);
  for (uint32_t i = request.first(); found.ok() && i < end; ++i) {
    std::optional<MachineSettings::Rates> rates;
    found = settled(settings_.meterRates(meter, i, &rates));
    if (!found.ok()) break;
    pb::ReadCellsReply::Cell* const cell = reply->add_cells();
    if (!rates) continue;
    describe(rates->committed, cell->mutable_rates()->mutable_committed());
    describe(rates->peak, cell->mutable_rates()->mutable_peak());
  }
  return found;
}

}  // namespace jxmodel::control
