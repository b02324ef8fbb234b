#include "model/rpc/service.h"

#include <google/protobuf/arena.h>

#include "model/rpc/entry_reader.h"
#include "model/rpc/table_kind.h"
#include "model/runtime/rt_learn.h"

namespace jxmodel::control {
namespace {

namespace pb = jx::control::v1;
using Gate = ReaderLock;

/// Entries of one message of a stream: enough that the message's own cost is small, few enough that
/// a device is not held up.
constexpr uint32_t kEntriesPerChunk = 256;
/// A group alone may have tens of thousands of members, and clients limit the size of a message.
constexpr uint32_t kGroupsPerChunk = 1;

grpc::Status notFound(const std::string& what) { return {grpc::StatusCode::NOT_FOUND, what}; }

/// A status of the runtime API that no request should have led to.
grpc::Status unexpected(const std::string& where, jx_status_t status) {
  const char* text = "";
  jx_rt_err_str(status, &text);
  return {grpc::StatusCode::INTERNAL, where + ": " + text};
}

jx_rt_target_t wholeDevice(jx_dev_id_t device) { return {device, JX_PIPE_ALL, 0, 0}; }

template <typename Request>
std::optional<jx_dev_id_t> deviceOf(const Request& request) {
  if (!request.has_device()) return std::nullopt;
  return request.device();
}

template <typename Request>
std::optional<std::string> programOf(const Request& request) {
  if (!request.has_program()) return std::nullopt;
  return request.program();
}

}  // namespace

grpc::Status SwitchService::ListPrograms(grpc::ServerContext* /*context*/,
                                         const pb::ListProgramsRequest* request,
                                         pb::ListProgramsReply* reply) {
  const Gate gate(deviceGate());
  std::vector<ProgramPlace> places;
  grpc::Status found = findPrograms(deviceOf(*request), std::nullopt, &places);
  if (!found.ok()) return found;
  for (const ProgramPlace& place : places) {
    bool is_virtual = false;
    jx_status_t status = jxrt::JxRtDevMgr::getInstance().deviceIsVirtual(place.device, &is_virtual);
    if (status != JX_SUCCESS) return unexpected("device", status);
    std::vector<const jxrt::JxRtTable*> tables;
    status = place.info->tablesGet(&tables);
    if (status != JX_SUCCESS) return unexpected("tables of program " + place.name, status);
    pb::Program* program = reply->add_programs();
    program->set_device(place.device);
    program->set_device_is_virtual(is_virtual);
    program->set_name(place.name);
    program->set_tables(static_cast<uint32_t>(tables.size()));
  }
  return grpc::Status::OK;
}

grpc::Status SwitchService::ListTables(grpc::ServerContext* /*context*/,
                                       const pb::ListTablesRequest* request,
                                       pb::ListTablesReply* reply) {
  const Gate gate(deviceGate());
  std::vector<ProgramPlace> places;
  grpc::Status found = findPrograms(deviceOf(*request), programOf(*request), &places);
  if (!found.ok()) return found;
  for (const ProgramPlace& place : places) {
    std::vector<const jxrt::JxRtTable*> tables;
    const jx_status_t status = place.info->tablesGet(&tables);
    if (status != JX_SUCCESS) return unexpected("tables of program " + place.name, status);
    for (const jxrt::JxRtTable* table : tables) {
      grpc::Status described = describeTable(place, *table, reply->add_tables());
      if (!described.ok()) return described;
    }
  }
  return grpc::Status::OK;
}

grpc::Status SwitchService::CountTable(grpc::ServerContext* /*context*/,
                                       const pb::TableRequest* request,
                                       pb::CountTableReply* reply) {
  const Gate gate(deviceGate());
  TablePlace place{};
  grpc::Status found = findTable(*request, &place);
  if (!found.ok()) return found;
  uint32_t count = 0;
  const jx_status_t status =
      place.table->tableUsageGet(*session_, wholeDevice(place.device), 0, &count);
  if (status != JX_SUCCESS) return unexpected("count of table " + place.name, status);
  reply->set_entries(count);
  return grpc::Status::OK;
}

grpc::Status SwitchService::ReadTable(grpc::ServerContext* context, const pb::TableRequest* request,
                                      grpc::ServerWriter<pb::EntryChunk>* writer) {
  TablePlace place{};
  std::optional<EntryReader> reader;
  {
    const Gate gate(deviceGate());
    grpc::Status found = findTable(*request, &place);
    if (!found.ok()) return found;
    reader.emplace(*place.table, *session_, wholeDevice(place.device));
    if (reader->status() != JX_SUCCESS) return unexpected("table " + place.name, reader->status());
  }
  // From here on the names mean this very table, whatever else comes up under them.
  pb::TableRequest same;
  same.set_table(place.name);
  same.set_device(place.device);
  same.set_program(place.program);

  const uint32_t chunk_size =
      reader->type() == JX_RT_TABLE_SELECTOR ? kGroupsPerChunk : kEntriesPerChunk;
  google::protobuf::Arena arena;
  uint64_t cursor = 0;
  for (bool last = false; !last;) {
    arena.Reset();
    auto* const chunk = google::protobuf::Arena::CreateMessage<pb::EntryChunk>(&arena);
    {
      const Gate gate(deviceGate());
      TablePlace now{};
      if (!findTable(same, &now).ok() || now.table != place.table) {
        return {grpc::StatusCode::ABORTED,
                "device " + std::to_string(place.device) + " was removed while it was read"};
      }
      jx_status_t status = reader->readChunk(&cursor, chunk_size, chunk);
      last = chunk->entries_size() == 0;
      if (status == JX_SUCCESS && last) status = reader->readSpecialEntries(chunk);
      if (status != JX_SUCCESS) return unexpected("entries of table " + place.name, status);
    }
    if (context->IsCancelled() || !writer->Write(*chunk)) return grpc::Status::CANCELLED;
  }
  return grpc::Status::OK;
}

grpc::Status SwitchService::ListDigests(grpc::ServerContext* /*context*/,
                                        const pb::ListDigestsRequest* request,
                                        pb::ListDigestsReply* reply) {
  const Gate gate(deviceGate());
  std::vector<ProgramPlace> places;
  grpc::Status found = findPrograms(deviceOf(*request), programOf(*request), &places);
  if (!found.ok()) return found;
  for (const ProgramPlace& place : places) {
    std::vector<jxrt::JxRtLearn*> learns;
    const jx_status_t status = place.info->learnsGet(&learns);
    if (status != JX_SUCCESS) return unexpected("digests of program " + place.name, status);
    for (const jxrt::JxRtLearn* learn : learns) {
      // The model makes no other kind.
      const auto& own = static_cast<const RtLearn&>(*learn);
      pb::Digest* const digest = reply->add_digests();
      digest->set_device(place.device);
      digest->set_program(place.name);
      digest->set_name(own.description().name);
      digest->set_id(own.description().id);
      digest->set_armed(own.hasClient());
    }
  }
  return grpc::Status::OK;
}

/// The programs that fit; none fitting is an error only where one was asked for.
grpc::Status SwitchService::findPrograms(std::optional<jx_dev_id_t> device,
                                         const std::optional<std::string>& program,
                                         std::vector<ProgramPlace>* places) const {
  const jxrt::JxRtDevMgr& manager = jxrt::JxRtDevMgr::getInstance();
  std::vector<jx_dev_id_t> devices;
  jx_status_t status = manager.devicesGet(&devices);
  if (status != JX_SUCCESS) return unexpected("devices", status);
  bool device_found = false;
  for (const jx_dev_id_t dev_id : devices) {
    if (device && dev_id != *device) continue;
    device_found = true;
    std::vector<std::string> names;
    status = manager.jxRtInfoP4NamesGet(dev_id, &names);
    if (status != JX_SUCCESS) return unexpected("programs", status);
    for (std::string& name : names) {
      if (program && name != *program) continue;
      const jxrt::JxRtInfo* info = nullptr;
      status = manager.jxRtInfoGet(dev_id, name, &info);
      if (status != JX_SUCCESS || info == nullptr) return unexpected("program " + name, status);
      places->push_back({dev_id, std::move(name), info});
    }
  }
  if (device && !device_found) return notFound("there is no device " + std::to_string(*device));
  if (program && places->empty()) return notFound("there is no program '" + *program + "'");
  return grpc::Status::OK;
}

grpc::Status SwitchService::findTable(const pb::TableRequest& request, TablePlace* place) const {
  std::vector<ProgramPlace> programs;
  grpc::Status found = findPrograms(deviceOf(request), programOf(request), &programs);
  if (!found.ok()) return found;
  std::vector<TablePlace> fitting;
  for (ProgramPlace& program : programs) {
    const jxrt::JxRtTable* table = nullptr;
    if (program.info->tableFromNameGet(request.table(), &table) != JX_SUCCESS) continue;
    if (table == nullptr) return unexpected("table " + request.table(), JX_INTERNAL_ERROR);
    fitting.push_back({program.device, std::move(program.name), request.table(), table});
  }
  if (fitting.empty()) return notFound("there is no table '" + request.table() + "'");
  if (fitting.size() == 1) {
    *place = std::move(fitting.front());
    return grpc::Status::OK;
  }
  std::string message = "several tables are called '" + request.table() + "', choose:";
  for (const TablePlace& fits : fitting) {
    message += (&fits == &fitting.front() ? " " : "; ");
    message += "device " + std::to_string(fits.device) + ", program " + fits.program;
  }
  return {grpc::StatusCode::INVALID_ARGUMENT, message};
}

grpc::Status SwitchService::describeTable(const ProgramPlace& program, const jxrt::JxRtTable& table,
                                          pb::Table* out) const {
  const jx_rt_target_t target = wholeDevice(program.device);
  std::string name;
  uint32_t id = 0, count = 0;
  pipe_tbl_hdl_t handle = 0;
  jx_rt_table_type_t type = JX_RT_TABLE_MATCH_DIRECT;
  size_t size = 0;
  for (const jx_status_t status :
       {table.tableNameGet(&name), table.tableIdGet(&id), table.tableHandleGet(&handle),
        table.tableTypeGet(&type), table.tableSizeGet(*session_, target, 0, &size),
        table.tableUsageGet(*session_, target, 0, &count)}) {
    if (status != JX_SUCCESS) return unexpected("table " + program.name + "/" + name, status);
  }
  out->set_device(program.device);
  out->set_program(program.name);
  out->set_name(name);
  out->set_id(id);
  out->set_handle(handle);
  out->set_kind(kindOf(type));
  out->set_size(size);
  out->set_entries(count);
  return grpc::Status::OK;
}

}  // namespace jxmodel::control
