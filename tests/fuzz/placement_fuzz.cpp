// Feeds bytes to the placement decoder, and what it accepts to a physical device.
//
// The bytes are decoded twice: as they are, from a block of exactly their length; and with the
// checksum made right, so that the fuzzer gets behind it. The first bytes choose table and
// operation.
#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "jxsdk/drv.h"
#include "jxsdk/pipe_mgr.h"
#include "model/device/registry.h"
#include "model/placement/placement.h"
#include "model/runtime/rt_info.h"
#include "model/runtime/session.h"

namespace {

using jxmodel::Device;
using jxmodel::Placement;

constexpr jx_dev_id_t kDevice = 1;
constexpr pipe_tbl_hdl_t kMembers = 0x40010004, kGroups = 0x50010005;
constexpr size_t kHeaderBytes = sizeof(jxmodel::PlacementHeader);

constexpr const char* kProgram = R"({
  "name": "fuzzed", "id": 1,
  "fields": [{"name": "meta.ingress_port", "width": 9}, {"name": "ipv4.src", "width": 32},
             {"name": "ipv4.dst", "width": 32}, {"name": "l4.sport", "width": 16},
             {"name": "l4.dport", "width": 16}],
  "actions": [{"name": "nop", "params": [], "body": []},
              {"name": "send", "params": [{"name": "port", "width": 9}],
               "body": [{"op": "forward", "port": {"param": "port"}}]}],
  "tables": [
    {"name": "exact", "kind": "match", "size": 64, "idle_timeout": true,
     "key": [{"field": "meta.ingress_port", "match": "exact"}], "actions": ["nop", "send"]},
    {"name": "mixed", "kind": "match", "size": 64,
     "key": [{"field": "ipv4.src", "match": "ternary"}, {"field": "meta.ingress_port", "match": "exact"},
             {"field": "l4.sport", "match": "range"}, {"field": "l4.dport", "match": "optional"}],
     "actions": ["nop", "send"]},
    {"name": "lpm", "kind": "match", "size": 64, "key": [{"field": "ipv4.dst", "match": "lpm"}],
     "action_data": "members", "selector": "groups"},
    {"name": "members", "kind": "action_data", "size": 16, "actions": ["nop", "send"]},
    {"name": "groups", "kind": "selector", "size": 8, "action_data": "members", "max_members": 4,
     "hash": ["ipv4.src"]}],
  "control": []
})";

struct Switch {
  Switch() {
    jxmodel::LoadError error;
    std::string text;
    auto program = jxmodel::parseProgramJson(kProgram, "fuzzed", &error);
    if (program == nullptr || jx_drv_init() != JX_SUCCESS || pipe_mgr_init() != JX_SUCCESS) {
      std::abort();
    }
    device = Device::create(kDevice, Device::Kind::kPhysical, {std::move(program)}, 0, &text);
    if (device == nullptr || jxmodel::DeviceRegistry::instance().add(device) != JX_SUCCESS) {
      std::abort();
    }
    session = jxrt::JxRtSession::sessionCreate();
    // Groups come without placement data: there have to be some for members to join.
    for (uint32_t handle = 1; handle <= 5; ++handle) {
      uint32_t slot = 0;
      device->findTable(kGroups)->groups->create(handle, handle, 0, {}, &slot);
    }
  }
  std::shared_ptr<Device> device;
  std::shared_ptr<jxrt::JxRtSession> session;
};

Switch& theSwitch() {
  static auto* const instance = new Switch;
  return *instance;
}

/// The operation that goes with the kind of the data, one of those that there are.
void setOperation(pipe_plcmt_info* info, const Placement& placement, uint8_t choice,
                  const void* data) {
  const uint32_t handle = 1 + choice % 5;
  const uint32_t member = choice >= 128 ? handle : 0;  // for the table that refers to members
  switch (placement.header.kind) {
    case jxmodel::PlacementKind::kMatch:
      if (choice % 3 == 0)
        pipe_set_one_plcmt_op_mat_add(info, handle, 0, choice % 4, 0, member, data);
      if (choice % 3 == 1) pipe_set_one_plcmt_op_mat_mod(info, handle, 0, member, data);
      if (choice % 3 == 2) pipe_set_one_plcmt_op_mat_mov(info, handle, choice % 4, 0, member, data);
      return;
    case jxmodel::PlacementKind::kMatchDefault:
      pipe_set_one_plcmt_op_mat_set_dflt(info, handle, 0, 0, member, data);
      return;
    case jxmodel::PlacementKind::kMember:
      choice % 2 == 0 ? pipe_set_one_plcmt_op_adt_add(info, handle, 0, data)
                      : pipe_set_one_plcmt_op_adt_mod(info, handle, data);
      return;
    case jxmodel::PlacementKind::kGroupMember:
      pipe_set_one_plcmt_op_sel_add(info, handle, handle, 0, kMembers, choice % 2, data);
      return;
    case jxmodel::PlacementKind::kFallback:
      pipe_set_one_plcmt_op_sel_set_fallback(info, handle, 0, data);
      return;
  }
}

void processDecoded(const Placement& placement, uint8_t choice, const void* data) {
  pipe_plcmt_info* const info = pipe_create_plcmt_info();
  setOperation(info, placement, choice, data);
  uint32_t processed = 0;
  pipe_process_plcmt_info(theSwitch().session->sessHandleGet(), kDevice,
                          placement.header.table_handle, info, 0, &processed);
  pipe_destroy_plcmt_info(info);
}

void decode(const uint8_t* bytes, size_t size, uint8_t choice) {
  Placement placement;
  if (!jxmodel::decodePlacement(bytes, size, &placement)) return;
  // What is accepted survives the way through the SDK's entries unchanged.
  size_t unpacked_bytes = 0;
  if (jx_drv_plcmt_unpack_data_size(bytes, &unpacked_bytes) != JX_SUCCESS) std::abort();
  const std::unique_ptr<uint8_t[]> data(new uint8_t[unpacked_bytes]);
  if (jx_drv_plcmt_copy_unpack(bytes, data.get()) != JX_SUCCESS) std::abort();
  const std::unique_ptr<uint8_t[]> packed(new uint8_t[unpacked_bytes]);
  if (jx_drv_plcmt_copy_pack(data.get(), packed.get()) != JX_SUCCESS) std::abort();
  if (std::memcmp(packed.get(), bytes, unpacked_bytes) != 0) std::abort();
  processDecoded(placement, choice, data.get());
}

void makeChecksumRight(uint8_t* bytes, size_t size) {
  jxmodel::PlacementHeader header;
  std::memcpy(&header, bytes, kHeaderBytes);
  const size_t total = header.total_bytes;
  if (total < kHeaderBytes || total > size) return;
  uLong sum = crc32(0, bytes, kHeaderBytes - 4);
  if (total > kHeaderBytes) {
    sum = crc32(sum, bytes + kHeaderBytes, static_cast<uInt>(total - kHeaderBytes));
  }
  header.checksum = static_cast<uint32_t>(sum);
  std::memcpy(bytes, &header, kHeaderBytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
  if (size == 0) return 0;
  const uint8_t choice = input[0];
  const size_t length = size - 1;
  const std::unique_ptr<uint8_t[]> exact(new uint8_t[length]);
  std::memcpy(exact.get(), input + 1, length);
  decode(exact.get(), length, choice);
  if (length < kHeaderBytes) return 0;
  makeChecksumRight(exact.get(), length);
  decode(exact.get(), length, choice);
  return 0;
}
