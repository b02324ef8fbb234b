#include "switch_side.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <stdexcept>

#include "child.h"
#include "clock.h"
#include "jxsdk/drv.h"
#include "jxsdk/pipe_mgr.h"

namespace bench {
namespace {

constexpr char kMembers[] = "nexthops";
constexpr char kRoutes[] = "ipv4_lpm";
constexpr uint32_t kMemberCount = 64;
constexpr size_t kMaxPacked = 2048;

uint32_t dataField(const jxrt::JxRtTable& table, const char* name) {
  uint32_t id = 0;
  check(table.dataFieldIdGet(name, &id), name);
  return id;
}

/// One update as it lies in the recorder's memory.
struct Recorded {
  pipe_mat_add_params params;
  size_t offset;
};

/// What a virtual device places, packed as it would travel.
class Recorder {
 public:
  explicit Recorder(size_t updates) {
    updates_.reserve(updates);
    packed_.resize(updates * 128);  // touched now, so that recording pays for no page
  }

  static void onMatch(jx_dev_target_t, pipe_tbl_hdl_t table, pipe_mat_update_type,
                      pipe_mat_update_params* params, void* cookie) {
    auto* self = static_cast<Recorder*>(cookie);
    self->route_table_ = table;
    self->updates_.push_back({params->add, self->used_});
    self->pack(params->add.data);
  }

  static void onMember(jx_dev_target_t, pipe_tbl_hdl_t table, pipe_adt_update_type,
                       pipe_adt_update_params* params, void* cookie) {
    auto* self = static_cast<Recorder*>(cookie);
    self->member_table_ = table;
    self->members_.push_back({params->add.ent_hdl, self->used_});
    self->pack(params->add.data);
  }

  /// Makes the recorded members on a physical device.
  void replayMembers(pipe_sess_hdl_t session, jx_dev_id_t device) {
    for (const auto& [handle, offset] : members_) {
      unpack(offset);
      pipe_plcmt_info* info = pipe_create_plcmt_info();
      check(pipe_set_one_plcmt_op_adt_add(info, handle, JX_PIPE_ALL, data_.data()), "member");
      process(session, device, member_table_, info);
    }
  }

  /// Makes the recorded routes on a physical device: the calls that a slice agent makes.
  void replayRoutes(pipe_sess_hdl_t session, jx_dev_id_t device) {
    for (const Recorded& update : updates_) {
      const pipe_mat_add_params& add = update.params;
      unpack(update.offset);
      pipe_plcmt_info* info = pipe_create_plcmt_info();
      check(pipe_set_one_plcmt_op_mat_add(info, add.ent_hdl, JX_PIPE_ALL, add.priority,
                                          add.act.sel_grp_hdl, add.act.adt_ent_hdl, data_.data()),
            "route");
      process(session, device, route_table_, info);
    }
  }

  size_t routeCount() const { return updates_.size(); }
  size_t packedSize() const { return (used_ - updates_.front().offset) / updates_.size(); }

 private:
  void pack(const void* data) {
    size_t size = 0;
    check(jx_drv_plcmt_pack_data_size(data, &size), "packed size");
    if (packed_.size() - used_ < size) packed_.resize(packed_.size() * 2 + size);
    check(jx_drv_plcmt_copy_pack(data, packed_.data() + used_), "pack");
    used_ += size;
  }

  void unpack(size_t offset) {
    size_t size = 0;
    check(jx_drv_plcmt_unpack_data_size(packed_.data() + offset, &size), "unpacked size");
    if (size > data_.size()) throw std::runtime_error("placement data is larger than thought");
    check(jx_drv_plcmt_copy_unpack(packed_.data() + offset, data_.data()), "unpack");
  }

  static void process(pipe_sess_hdl_t session, jx_dev_id_t device, pipe_tbl_hdl_t table,
                      pipe_plcmt_info* info) {
    uint32_t processed = 0;
    check(pipe_process_plcmt_info(session, device, table, info, 0, &processed), "process");
    if (processed != 1) throw std::runtime_error("one operation was not processed");
    pipe_destroy_plcmt_info(info);
  }

  std::vector<Recorded> updates_;
  std::vector<std::pair<pipe_adt_ent_hdl_t, size_t>> members_;
  std::vector<uint8_t> packed_;
  size_t used_ = 0;
  pipe_tbl_hdl_t route_table_ = 0;
  pipe_tbl_hdl_t member_table_ = 0;
  alignas(std::max_align_t) std::array<uint8_t, kMaxPacked> data_ = {};
};

}  // namespace

void check(jx_status_t status, const char* what) {
  if (status == JX_SUCCESS) return;
  const char* text = "";
  jx_rt_err_str(status, &text);
  throw std::runtime_error(std::string(what) + ": " + text);
}

void bringUpSdk() {
  check(jx_drv_init(), "driver");
  check(pipe_mgr_init(), "pipeline manager");
  check(jx_rt_module_init(0, 0, nullptr, nullptr), "runtime");
}

jx_rt_target_t targetOf(jx_dev_id_t device) {
  jx_rt_target_t target = {};
  target.dev_id = device;
  target.pipe_id = JX_PIPE_ALL;
  return target;
}

const jxrt::JxRtTable& findTable(jx_dev_id_t device, const std::string& name) {
  const jxrt::JxRtDevMgr& manager = jxrt::JxRtDevMgr::getInstance();
  std::vector<std::string> programs;
  check(manager.jxRtInfoP4NamesGet(device, &programs), "programs");
  const jxrt::JxRtInfo* info = nullptr;
  check(manager.jxRtInfoGet(device, programs.at(0), &info), "program");
  const jxrt::JxRtTable* table = nullptr;
  check(info->tableFromNameGet(name, &table), name.c_str());
  return *table;
}

void addMembers(const jxrt::JxRtSession& session, jx_dev_id_t device, uint32_t count) {
  const jxrt::JxRtTable& table = findTable(device, kMembers);
  std::vector<jxrt::JxRtActionInfo> actions;
  check(table.actionListGet(&actions), "actions");
  std::unique_ptr<jxrt::JxRtTableKey> key;
  std::unique_ptr<jxrt::JxRtTableData> data;
  check(table.keyAllocate(&key), "key");
  check(table.dataAllocate(actions.at(0).id, &data), "data");
  uint32_t key_field = 0;
  check(table.keyFieldIdGet(JX_RT_FIELD_MEMBER_ID, &key_field), "member id");
  for (uint32_t member = 1; member <= count; ++member) {
    check(key->setValue(key_field, uint64_t{member}), "member id");
    for (const jxrt::JxRtFieldInfo& param : actions[0].params) {
      check(data->setValue(param.id, uint64_t{member}), param.name.c_str());
    }
    check(table.tableEntryAdd(session, targetOf(device), 0, *key, *data), "member");
  }
}

RouteWriter::RouteWriter(const jxrt::JxRtSession& session, jx_dev_id_t device, uint32_t members)
    : session_(session), target_(targetOf(device)), table_(findTable(device, kRoutes)) {
  check(table_.keyAllocate(&key_), "key");
  check(table_.keyFieldIdGet("ipv4.dst", &key_field_), "ipv4.dst");
  const uint32_t member_field = dataField(table_, JX_RT_FIELD_MEMBER_ID);
  for (uint32_t member = 1; member <= members; ++member) {
    check(table_.dataAllocate(&data_.emplace_back()), "data");
    check(data_.back()->setValue(member_field, uint64_t{member}), "member");
  }
}

void RouteWriter::add(const Route& route) {
  check(key_->setValueLpm(key_field_, uint64_t{route.address}, route.length), "key");
  check(table_.tableEntryAdd(session_, target_, 0, *key_, *data_[next_]), "route");
  next_ = next_ + 1 == data_.size() ? 0 : next_ + 1;
}

uint32_t countRoutes(const jxrt::JxRtSession& session, jx_dev_id_t device) {
  uint32_t count = 0;
  check(findTable(device, kRoutes).tableUsageGet(session, targetOf(device), 0, &count), "count");
  return count;
}

void modelOnly(const std::string& program, const std::vector<Route>& routes) {
  constexpr jx_dev_id_t kPhysical = 0;
  constexpr jx_dev_id_t kVirtual = 1;
  bringUpSdk();
  Profile profile(program);
  check(jx_device_add(kPhysical, profile.get(), JX_DEV_TYPE_ANY), "physical device");
  check(jx_virtual_device_add(kVirtual, profile.get(), JX_DEV_TYPE_ANY), "virtual device");
  const std::shared_ptr<jxrt::JxRtSession> session = jxrt::JxRtSession::sessionCreate();
  Recorder recorder(routes.size() + kMemberCount);
  check(findTable(kVirtual, kMembers)
            .adtUpdateCbRegister(*session, targetOf(kVirtual), Recorder::onMember, &recorder),
        "callback");
  check(findTable(kVirtual, kRoutes)
            .matUpdateCbRegister(*session, targetOf(kVirtual), Recorder::onMatch, &recorder),
        "callback");
  addMembers(*session, kVirtual, kMemberCount);

  RouteWriter writer(*session, kVirtual, kMemberCount);
  const uint64_t virtual_begin = processCpu();
  for (const Route& route : routes) writer.add(route);
  const uint64_t virtual_cpu = processCpu() - virtual_begin;
  if (recorder.routeCount() != routes.size()) throw std::runtime_error("updates are missing");

  recorder.replayMembers(session->sessHandleGet(), kPhysical);
  const uint64_t physical_begin = processCpu();
  recorder.replayRoutes(session->sessHandleGet(), kPhysical);
  const uint64_t physical_cpu = processCpu() - physical_begin;
  if (countRoutes(*session, kPhysical) != routes.size()) {
    throw std::runtime_error("routes are missing on the physical device");
  }
  report({{"virtual_cpu", virtual_cpu},
          {"physical_cpu", physical_cpu},
          {"packed_size", recorder.packedSize()}});
  awaitEnd();
}

}  // namespace bench
