#include "wire/recorded_update.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/write_command.h"

namespace jextest {
namespace {

std::function<void(const Update&)>& listener() {
  static std::function<void(const Update&)> current;
  return current;
}

template <uint32_t message, typename Type, typename Params>
void report(jx_dev_target_t target, pipe_tbl_hdl_t table, Type type, Params* params, void*) {
  listener()({message, target, table, static_cast<uint32_t>(type), params});
}

}  // namespace

const std::vector<UpdateLayout>& updateLayouts() {
  static const std::vector<UpdateLayout> all = {
      {"MatchAdd", 0, 0, 11, 10, true},
      {"MatchSetDefault", 0, 2, 9, 8, true},
      {"MatchClearDefault", 0, 3, 1, -1, false},
      {"MatchDelete", 0, 4, 1, -1, false},
      {"MatchModify", 0, 5, 9, 8, true},
      {"MatchMove", 0, 6, 10, 9, true},
      {"MemberAdd", 1, 0, 2, 1, true},
      {"MemberDelete", 1, 1, 1, -1, false},
      {"MemberModify", 1, 2, 2, 1, true},
      {"GroupCreate", 2, 0, 6, 5, false, true},
      {"GroupDestroy", 2, 1, 1, -1, false},
      {"GroupMemberAdd", 2, 2, 5, 4, true},
      {"GroupMemberDelete", 2, 3, 4, -1, false},
      {"GroupMemberActivate", 2, 4, 4, -1, false},
      {"GroupMemberDeactivate", 2, 5, 4, -1, false},
      {"FallbackSet", 2, 6, 2, 1, true},
      {"FallbackClear", 2, 7, 0, -1, false},
  };
  return all;
}

const UpdateLayout& layoutOf(uint32_t message, uint32_t type) {
  for (const UpdateLayout& layout : updateLayouts()) {
    if (layout.message == message && layout.type == type) return layout;
  }
  std::fprintf(stderr, "test: no update %u of message %u travels\n", type, message);
  std::abort();
}

uint32_t Update::word(size_t i) const {
  uint32_t value = 0;
  std::memcpy(&value, static_cast<const uint8_t*>(params) + 4 * i, 4);
  return value;
}

void Update::setWord(size_t i, uint32_t value) const {
  std::memcpy(static_cast<uint8_t*>(params) + 4 * i, &value, 4);
}

const void* Update::pointer(size_t i) const {
  const void* value = nullptr;
  std::memcpy(&value, static_cast<const uint8_t*>(params) + 4 * i, sizeof value);
  return value;
}

const void* Update::data() const {
  return layout().packed ? pointer(static_cast<size_t>(layout().pointer)) : nullptr;
}

Bytes Update::toMessage(uint32_t pid) const {
  Bytes bytes(32);
  putU32(bytes, 0, message);
  putU32(bytes, 4, pid);
  putU32(bytes, 16, static_cast<uint32_t>(target.device_id));
  putU32(bytes, 20, target.dev_pipe_id);
  putU32(bytes, 24, table);
  putU32(bytes, 28, type);
  for (size_t i = 0; i < layout().words; ++i) putU32(bytes, 32 + 4 * i, word(i));
  if (layout().packed) append(bytes, packed(data()));
  if (layout().elements) {
    const auto* const first = static_cast<const uint8_t*>(pointer(5));
    append(bytes, Bytes(first, first + 8 * size_t{word(4)}));
  }
  putU64(bytes, 8, bytes.size());
  return bytes;
}

void listen(const DeviceView& device, std::function<void(const Update&)> to) {
  listener() = std::move(to);
  for (const jxrt::JxRtTable* table : device.tables()) {
    jx_rt_table_type_t type{};
    must(table->tableTypeGet(&type), "table type");
    if (type <= JX_RT_TABLE_MATCH_SELECTOR) {
      must(table->matUpdateCbRegister(device.session(), device.target(),
                                      &report<0, pipe_mat_update_type, pipe_mat_update_params>,
                                      nullptr),
           "callback");
    } else if (type == JX_RT_TABLE_ACTION_DATA) {
      must(table->adtUpdateCbRegister(device.session(), device.target(),
                                      &report<1, pipe_adt_update_type, pipe_adt_update_params>,
                                      nullptr),
           "callback");
    } else if (type == JX_RT_TABLE_SELECTOR) {
      must(table->selUpdateCbRegister(device.session(), device.target(),
                                      &report<2, pipe_sel_update_type, pipe_sel_update_params>,
                                      nullptr),
           "callback");
    }
  }
}

Bytes packed(const void* data) {
  size_t size = 0;
  must(jx_drv_plcmt_pack_data_size(data, &size), "pack size");
  Bytes bytes(size);
  must(jx_drv_plcmt_copy_pack(data, bytes.data()), "pack");
  return bytes;
}

std::vector<Bytes> messagesOf(const DeviceView& device, const std::vector<std::string>& writes,
                              uint32_t pid) {
  std::vector<Bytes> messages;
  listen(device, [&](const Update& update) { messages.push_back(update.toMessage(pid)); });
  runWrites(TableWriter(device), writes);
  listen(device, [](const Update&) {});
  return messages;
}

}  // namespace jextest
