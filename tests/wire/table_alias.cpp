#include "wire/table_alias.h"

#include <cstdlib>
#include <memory>

#include "jxsdk/rt.h"
#include "jxsdk/rt.hpp"
#include "wire/sdk_front.h"
#include "wire/unsupported_table.h"

namespace jextest {
namespace {

struct Alias {
  std::string name;  // empty: none
  uint32_t id = 0;

  Alias() {
    const char* const text = std::getenv(kTableAliasVariable);
    if (text == nullptr) return;
    const std::string whole = text;
    name = whole.substr(0, whole.find('='));
    id = static_cast<uint32_t>(std::stoul(whole.substr(whole.find('=') + 1)));
  }
};

const Alias& alias() {
  static const Alias instance;
  return instance;
}

/// A table with another id and its own size; there is nothing else to it.
class RenamedTable final : public UnsupportedTable {
 public:
  RenamedTable(const jxrt::JxRtTable& table, uint32_t id) : table_(table), id_(id) {}

  jx_status_t tableIdGet(uint32_t* id) const override {
    *id = id_;
    return JX_SUCCESS;
  }
  jx_status_t tableSizeGet(Session session, Target target, uint64_t flags,
                           size_t* size) const override {
    return table_.tableSizeGet(session, target, flags, size);
  }

 private:
  const jxrt::JxRtTable& table_;
  uint32_t id_;
};

/// A program in which the renamed table is found under its name.
class RenamingInfo final : public ForwardingInfo {
 public:
  using ForwardingInfo::ForwardingInfo;
  jx_status_t tableFromNameGet(const std::string& name,
                               const jxrt::JxRtTable** table) const override {
    const jx_status_t status = ForwardingInfo::tableFromNameGet(name, table);
    if (status != JX_SUCCESS || name != alias().name) return status;
    static auto* const renamed = new RenamedTable(**table, alias().id);
    *table = renamed;
    return JX_SUCCESS;
  }
};

class RenamingManager final : public ForwardingManager {
  std::unique_ptr<jxrt::JxRtInfo> inFrontOf(const jxrt::JxRtInfo& info) const override {
    return std::make_unique<RenamingInfo>(info);
  }
};

}  // namespace

jxrt::JxRtDevMgr* managerInFront() {
  if (alias().name.empty()) return nullptr;
  static auto* const renaming = new RenamingManager;
  return renaming;
}

}  // namespace jextest

extern "C" __attribute__((visibility("default"))) jx_status_t jx_rt_table_from_id_get(
    const jx_rt_info_hdl* info, uint32_t table_id, const jx_rt_table_hdl** table) {
  static auto* const real =
      jextest::sdksOwn<decltype(jx_rt_table_from_id_get)>("jx_rt_table_from_id_get");
  const jextest::Alias& alias = jextest::alias();
  if (!alias.name.empty() && alias.id == table_id) {
    return jx_rt_table_from_name_get(info, alias.name.c_str(), table);
  }
  return real(info, table_id, table);
}
