// CPU time that the model takes for one of a million replicated adds, on either side: the writer's
// (key, data, add, report, pack) and the physical device's (unpack, info, process).
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "jxsdk/drv.h"
#include "jxsdk/pipe_mgr.h"
#include "unit/model/model_device.h"

namespace jxmodeltest {
namespace {

constexpr uint32_t kAdds = 1'000'000;
constexpr uint32_t kMembers = 64;
constexpr size_t kMessageBytes = 128;

double cpuSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// What the update path would send.
struct Message {
  uint32_t words[11];
  uint8_t packed[kMessageBytes];
};
std::vector<Message> messages;

void capture(jx_dev_target_t, pipe_tbl_hdl_t, pipe_mat_update_type, pipe_mat_update_params* params,
             void*) {
  Message& message = messages.emplace_back();
  std::copy(params->words, params->words + 11, message.words);
  size_t size = 0;
  if (jx_drv_plcmt_pack_data_size(params->add.data, &size) != JX_SUCCESS || size > kMessageBytes ||
      jx_drv_plcmt_copy_pack(params->add.data, message.packed) != JX_SUCCESS) {
    std::abort();
  }
}

void must(jx_status_t status) {
  if (status != JX_SUCCESS) std::abort();
}

void addMembers(const ModelDevice& virt, const ModelDevice& physical) {
  const TableUser members(virt, "nexthops");
  (*members).adtUpdateCbRegister(
      virt.session(), virt.target(),
      [](jx_dev_target_t, pipe_tbl_hdl_t table, pipe_adt_update_type,
         pipe_adt_update_params* params, void* cookie) {
        const auto& to = *static_cast<const ModelDevice*>(cookie);
        pipe_plcmt_info* const info = pipe_create_plcmt_info();
        must(pipe_set_one_plcmt_op_adt_add(info, params->add.ent_hdl, 0, params->add.data));
        uint32_t processed = 0;
        must(pipe_process_plcmt_info(to.session().sessHandleGet(), to.target().dev_id, table, info,
                                     0, &processed));
        pipe_destroy_plcmt_info(info);
      },
      const_cast<ModelDevice*>(&physical));
  for (uint32_t id = 1; id <= kMembers; ++id) {
    must(members.add(members.key(id), members.data("set_nexthop", {id, id, id})));
  }
}

double writerSide(const ModelDevice& virt,
                  const std::vector<std::pair<uint32_t, uint16_t>>& routes) {
  const jxrt::JxRtTable& table = virt.table("ipv4_lpm");
  must(table.matUpdateCbRegister(virt.session(), virt.target(), capture, nullptr));
  std::unique_ptr<jxrt::JxRtTableKey> key;
  std::unique_ptr<jxrt::JxRtTableData> data;
  const double begin = cpuSeconds();
  for (uint32_t i = 0; i < kAdds; ++i) {
    must(table.keyAllocate(&key));
    must(table.dataAllocate(&data));
    must(key->setValueLpm(1, uint64_t{routes[i].first}, routes[i].second));
    must(data->setValue(jxmodel::kFieldMemberId, uint64_t{1 + i % kMembers}));
    must(table.tableEntryAdd(virt.session(), virt.target(), 0, *key, *data));
  }
  return cpuSeconds() - begin;
}

double physicalSide(const ModelDevice& physical) {
  pipe_tbl_hdl_t table = 0;
  must(physical.table("ipv4_lpm").tableHandleGet(&table));
  const uint32_t session = physical.session().sessHandleGet();
  const double begin = cpuSeconds();
  for (const Message& message : messages) {
    const uint32_t* const w = message.words;
    size_t size = 0;
    must(jx_drv_plcmt_unpack_data_size(message.packed, &size));
    const std::unique_ptr<uint8_t[]> data(new uint8_t[size]);
    must(jx_drv_plcmt_copy_unpack(message.packed, data.get()));
    pipe_plcmt_info* const info = pipe_create_plcmt_info();
    must(pipe_set_one_plcmt_op_mat_add(info, w[0], JX_PIPE_ALL, w[2], w[7], w[4], data.get()));
    uint32_t processed = 0;
    must(pipe_process_plcmt_info(session, physical.target().dev_id, table, info, 0, &processed));
    pipe_destroy_plcmt_info(info);
  }
  return cpuSeconds() - begin;
}

void run() {
  const ModelDevice physical(10, ModelDevice::Kind::kPhysical, {delivered("router")});
  const ModelDevice virt(11, ModelDevice::Kind::kVirtual, {delivered("router")});
  addMembers(virt, physical);
  std::vector<std::pair<uint32_t, uint16_t>> routes;
  for (uint32_t i = 0; i < kAdds; ++i) routes.emplace_back(i << 8, 24);
  std::shuffle(routes.begin(), routes.end(), std::mt19937(1));
  messages.reserve(kAdds);
  const double writer = writerSide(virt, routes);
  const double reader = physicalSide(physical);
  std::printf("virtual side %.3f us an add, physical side %.3f us an add\n", writer / kAdds * 1e6,
              reader / kAdds * 1e6);
}

}  // namespace
}  // namespace jxmodeltest

int main() { jxmodeltest::run(); }
