#include "model/rpc/settings_service.h"

#include <string>
#include <utility>
#include <vector>

#include "jxmodel/control.h"
#include "model/base/clock.h"
#include "model/rpc/machine_settings.h"
#include "model/rpc/operator_writes.h"
#include "model/rpc/physical_device.h"
#include "model/rpc/table_kind.h"
#include "model/runtime/rt_info.h"

namespace jxmodel::control {
namespace {

namespace pb = jx::control::v1;
using grpc::StatusCode;
using Change = pb::ApplyRequest;

/// A program on a physical device.
struct ProgramOnDevice {
  PhysicalDevice place;
  const RtInfo* info = nullptr;
  /// What its machine keeps; null where it has none, or packets run through another program.
  MachineSettings* settings = nullptr;

  const Program& program() const { return info->program(); }
};

template <typename Request>
grpc::Status findProgram(const Request& request, ProgramOnDevice* out) {
  grpc::Status found = find(request, &out->place);
  if (!found.ok()) return found;
  const Device& device = *out->place.device;
  const RtInfo* const forwarding = device.forwarding();
  if (request.has_program()) {
    out->info = device.findInfo(request.program());
    if (out->info == nullptr) {
      return {StatusCode::NOT_FOUND, "there is no program '" + request.program() + "' on device " +
                                         std::to_string(device.id())};
    }
  } else {
    out->info = forwarding != nullptr    ? forwarding
                : device.infos().empty() ? nullptr
                                         : device.infos().front().get();
    if (out->info == nullptr) {
      return {StatusCode::NOT_FOUND, "device " + std::to_string(device.id()) + " has no program"};
    }
  }
  if (out->info == forwarding) out->settings = out->place.packets->pipeline().settings();
  return grpc::Status::OK;
}

TableState* stateOf(const ProgramOnDevice& on, const std::string& name) {
  for (TableState* const state : on.info->states()) {
    if (state->table->name == name) return state;
  }
  return nullptr;
}

pb::ProgramDescription::Key::Match matchOf(jx_rt_key_match_type_t match) {
  using Key = pb::ProgramDescription::Key;
  switch (match) {
    case JX_RT_MATCH_EXACT:
      return Key::MATCH_EXACT;
    case JX_RT_MATCH_TERNARY:
      return Key::MATCH_TERNARY;
    case JX_RT_MATCH_LPM:
      return Key::MATCH_LPM;
    case JX_RT_MATCH_RANGE:
      return Key::MATCH_RANGE;
    case JX_RT_MATCH_OPTIONAL:
      return Key::MATCH_OPTIONAL;
    case JX_RT_MATCH_INVALID:
      break;
  }
  return Key::MATCH_UNSPECIFIED;
}

void describe(const Action& action, pb::ProgramDescription::Action* out) {
  out->set_name(action.name);
  for (const Param& param : action.params) {
    pb::ProgramDescription::Field* const added = out->add_params();
    added->set_name(param.name);
    added->set_width(param.width);
    if (!param.default_value) continue;
    added->set_default_value(param.default_value->data(), param.default_value->size());
  }
}

bool isMatch(const Table& table) {
  return table.type != JX_RT_TABLE_ACTION_DATA && table.type != JX_RT_TABLE_SELECTOR &&
         table.type != JX_RT_TABLE_COUNTER;
}

void describe(const Program& program, const Table& table, pb::ProgramDescription::Table* out) {
  out->set_name(table.name);
  out->set_kind(kindOf(table.type));
  out->set_size(table.size);
  out->set_has_priority(table.has_priority);
  if (isMatch(table)) {
    for (const KeyField& field : table.key) {
      pb::ProgramDescription::Key* const added = out->add_key();
      added->set_name(field.name);
      added->set_width(field.width);
      added->set_match(matchOf(field.match));
    }
  }
  for (const uint32_t action : table.actions) describe(program.actions[action], out->add_actions());
  if (table.action_data_table) {
    out->set_action_data_table(program.tables[*table.action_data_table].name);
  }
  if (table.selector_table) out->set_selector_table(program.tables[*table.selector_table].name);
}

void describe(const Machine& machine, pb::ProgramDescription* out) {
  for (const MachineRegister& reg : machine.registers) {
    pb::ProgramDescription::Register* const added = out->add_registers();
    added->set_name(reg.name);
    added->set_size(reg.size);
    added->set_width(reg.width);
  }
  for (const MachineMeter& meter : machine.meters) {
    pb::ProgramDescription::Meter* const added = out->add_meters();
    added->set_name(meter.name);
    added->set_size(meter.size);
    added->set_counts_bytes(meter.counts_bytes);
  }
  for (const ValueSet& set : machine.value_sets) {
    pb::ProgramDescription::ValueSet* const added = out->add_value_sets();
    added->set_name(set.name);
    added->set_size(set.size);
    added->set_width(set.compressed_width);
  }
}

grpc::Status withoutMachine(const ProgramOnDevice& on) {
  return {StatusCode::FAILED_PRECONDITION,
          "program " + on.program().name +
              " has no registers, meters, value sets, multicast groups or clone sessions on this "
              "device: they belong to the compiled program that packets run through"};
}

/// The table that a change is about; null for another kind of change.
const std::string* tableOf(const Change& change) {
  switch (change.change_case()) {
    case Change::kAddEntry:
      return &change.add_entry().table();
    case Change::kDeleteEntry:
      return &change.delete_entry().table();
    case Change::kSetDefault:
      return &change.set_default().table();
    case Change::kAddMember:
      return &change.add_member().table();
    case Change::kAddGroup:
      return &change.add_group().table();
    case Change::kWriteCounter:
      return &change.write_counter().name();
    default:
      return nullptr;
  }
}

grpc::Status applyToTable(const Change& change, Device& device, TableState& state,
                          pb::ApplyReply* reply) {
  OperatorWrites writes(device, state);
  uint32_t handle = 0;
  grpc::Status status;
  switch (change.change_case()) {
    case Change::kAddEntry:
      status = writes.add(change.add_entry(), &handle);
      break;
    case Change::kDeleteEntry:
      return writes.remove(change.delete_entry().handle());
    case Change::kSetDefault:
      return writes.setDefault(change.set_default());
    case Change::kAddMember:
      status = writes.addMember(change.add_member(), &handle);
      break;
    case Change::kAddGroup:
      status = writes.addGroup(change.add_group(), &handle);
      break;
    default:
      return writes.writeCounter(change.write_counter());
  }
  if (status.ok()) reply->set_handle(handle);
  return status;
}

grpc::Status readCounters(const pb::ReadCellsRequest& request, const ProgramOnDevice& on,
                          pb::ReadCellsReply* reply) {
  const TableState* const state = stateOf(on, request.name());
  if (state == nullptr || state->counters == nullptr) {
    return {StatusCode::NOT_FOUND, "there is no counter table " + request.name()};
  }
  uint32_t end = 0;
  grpc::Status found = cellsOf(request, state->counters->size(), &end);
  for (uint32_t i = request.first(); found.ok() && i < end; ++i) {
    const CounterTable::Pair pair = state->counters->read(i);
    pb::Counter* const counter = reply->add_cells()->mutable_counter();
    counter->set_packets(pair.packets);
    counter->set_bytes(pair.bytes);
  }
  return found;
}

}  // namespace

grpc::Status SettingsService::Describe(grpc::ServerContext* /*context*/,
                                       const pb::DescribeRequest* request,
                                       pb::ProgramDescription* reply) {
  ProgramOnDevice on;
  grpc::Status found = findProgram(*request, &on);
  if (!found.ok()) return found;
  reply->set_device(on.place.device->id());
  reply->set_program(on.program().name);
  for (const Table& table : on.program().tables) {
    describe(on.program(), table, reply->add_tables());
  }
  if (on.settings != nullptr) describe(*on.program().machine, reply);
  return grpc::Status::OK;
}

grpc::Status SettingsService::Apply(grpc::ServerContext* /*context*/, const Change* request,
                                    pb::ApplyReply* reply) {
  ProgramOnDevice on;
  grpc::Status found = findProgram(*request, &on);
  if (!found.ok()) return found;
  const std::string* const table = tableOf(*request);
  if (table != nullptr) {
    TableState* const state = stateOf(on, *table);
    if (state != nullptr) return applyToTable(*request, *on.place.device, *state, reply);
    return {StatusCode::NOT_FOUND,
            "there is no table " + *table + " in program " + on.program().name};
  }
  if (on.settings == nullptr) return withoutMachine(on);
  return MachineMessages(*on.program().machine, *on.settings).apply(*request, reply);
}

grpc::Status SettingsService::ListSettings(grpc::ServerContext* /*context*/,
                                           const pb::DescribeRequest* request,
                                           pb::SettingsReply* reply) {
  ProgramOnDevice on;
  grpc::Status found = findProgram(*request, &on);
  if (!found.ok()) return found;
  if (on.settings == nullptr) return withoutMachine(on);
  reply->set_device(on.place.device->id());
  reply->set_program(on.program().name);
  MachineMessages(*on.program().machine, *on.settings).list(reply);
  return grpc::Status::OK;
}

grpc::Status SettingsService::ReadCells(grpc::ServerContext* /*context*/,
                                        const pb::ReadCellsRequest* request,
                                        pb::ReadCellsReply* reply) {
  ProgramOnDevice on;
  grpc::Status found = findProgram(*request, &on);
  if (!found.ok()) return found;
  if (request->kind() == request->KIND_COUNTER) return readCounters(*request, on, reply);
  if (on.settings == nullptr) return withoutMachine(on);
  return MachineMessages(*on.program().machine, *on.settings).read(*request, reply);
}

grpc::Status SettingsService::Exchange(grpc::ServerContext* /*context*/,
                                       const pb::ExchangeRequest* request,
                                       pb::ExchangeReply* reply) {
  PhysicalDevice place;
  grpc::Status found = find(*request, &place);
  if (!found.ok()) return found;
  if (request->port() >= kMaxPorts) {
    return {StatusCode::INVALID_ARGUMENT, "port " + std::to_string(request->port()) +
                                              " does not exist: ports end at " +
                                              std::to_string(kMaxPorts - 1)};
  }
  if (request->data().empty()) return {StatusCode::INVALID_ARGUMENT, "a packet without bytes"};
  const auto* const bytes = reinterpret_cast<const uint8_t*>(request->data().data());
  PacketBuffer packet(bytes, request->data().size());
  packet.setTime(static_cast<int64_t>(Clock::instance().now()), TimeResolution::kNanosecond);
  std::vector<Switch::Sent> sent;
  if (!place.packets->exchange(request->port(), std::move(packet), &sent)) return gone(place);
  for (const Switch::Sent& left : sent) {
    pb::ExchangeReply::Sent* const out = reply->add_sent();
    out->set_port(left.port);
    out->set_data(left.packet.data(), left.packet.size());
  }
  return grpc::Status::OK;
}

}  // namespace jxmodel::control

namespace {

using Service = jxmodel::control::SettingsService;

/// One call with its messages as bytes.
template <typename Request, typename Reply>
grpc::Status call(grpc::Status (Service::*method)(grpc::ServerContext*, const Request*, Reply*),
                  const std::string& request, std::string* reply) {
  Request in;
  if (!in.ParseFromString(request)) {
    return {grpc::StatusCode::INVALID_ARGUMENT, "bytes that are no request of this call"};
  }
  Reply out;
  Service service;
  grpc::Status status = (service.*method)(nullptr, &in, &out);
  if (status.ok()) out.SerializeToString(reply);
  return status;
}

grpc::Status callByName(const std::string& method, const std::string& request, std::string* reply) {
  if (method == "Describe") return call(&Service::Describe, request, reply);
  if (method == "Apply") return call(&Service::Apply, request, reply);
  if (method == "ListSettings") return call(&Service::ListSettings, request, reply);
  if (method == "ReadCells") return call(&Service::ReadCells, request, reply);
  if (method == "Exchange") return call(&Service::Exchange, request, reply);
  return {grpc::StatusCode::UNIMPLEMENTED, "there is no call " + method};
}

}  // namespace

jx_status_t jx_model_settings_call(const char* method, const uint8_t* request, size_t request_bytes,
                                   jx_model_settings_answer answer, void* cookie) {
  if (method == nullptr || answer == nullptr || (request == nullptr && request_bytes != 0)) {
    return JX_INVALID_ARGUMENTS;
  }
  std::string reply;
  const grpc::Status status =
      callByName(method, {reinterpret_cast<const char*>(request), request_bytes}, &reply);
  answer(cookie, status.error_code(), status.error_message().c_str(),
         reinterpret_cast<const uint8_t*>(reply.data()), reply.size());
  return JX_SUCCESS;
}
