// Writes entries that are told apart by a number: entry n of a table has the same key in every
// process, so that a test, a Partner and another Partner can speak of it without passing keys.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/switch_device.h"

namespace jextest {

class TableWriter {
 public:
  /// Keys of writers with different `owner` (0 to 15) never meet, in any table whose key has a
  /// field of 8 bits or more.
  explicit TableWriter(const DeviceView& device, uint32_t owner = 0)
      : device_(&device), owner_(owner) {}

  // Direct match tables. `seed` chooses the parameters. Priority is only set where it is not 0.
  jx_status_t add(const std::string& table, uint32_t n, const std::string& action,
                  uint64_t seed = 0, uint32_t priority = 0) const;
  jx_status_t modify(const std::string& table, uint32_t n, const std::string& action,
                     uint64_t seed = 0) const;
  jx_status_t setDefault(const std::string& table, const std::string& action,
                         uint64_t seed = 0) const;
  // Match tables whose entries refer to something.
  jx_status_t addReference(const std::string& table, uint32_t n, const std::string& field,
                           uint32_t id) const;
  jx_status_t modifyReference(const std::string& table, uint32_t n, const std::string& field,
                              uint32_t id) const;
  jx_status_t setDefaultReference(const std::string& table, const std::string& field,
                                  uint32_t id) const;
  // Every match table.
  jx_status_t remove(const std::string& table, uint32_t n) const;
  jx_status_t move(const std::string& table, uint32_t n, uint32_t priority) const;
  jx_status_t clearDefault(const std::string& table) const;
  uint32_t handle(const std::string& table, uint32_t n) const;

  jx_status_t memberAdd(const std::string& table, uint32_t id, const std::string& action,
                        uint64_t seed = 0) const;
  jx_status_t memberModify(const std::string& table, uint32_t id, const std::string& action,
                           uint64_t seed = 0) const;
  jx_status_t memberRemove(const std::string& table, uint32_t id) const;

  /// Members and their states: 1 takes traffic.
  using Elements = std::vector<std::pair<uint32_t, bool>>;
  jx_status_t groupCreate(const std::string& table, uint32_t id, const Elements& members = {},
                          uint32_t max_members = 0) const;
  jx_status_t groupDestroy(const std::string& table, uint32_t id) const;
  // One member of a group.
  jx_status_t groupAdd(const std::string& table, uint32_t group, uint32_t member) const;
  jx_status_t groupRemove(const std::string& table, uint32_t group, uint32_t member) const;
  jx_status_t groupActivate(const std::string& table, uint32_t group, uint32_t member) const;
  jx_status_t groupDeactivate(const std::string& table, uint32_t group, uint32_t member) const;
  jx_status_t fallbackSet(const std::string& table, uint32_t member) const;
  jx_status_t fallbackClear(const std::string& table) const;

 private:
  using Key = std::unique_ptr<jxrt::JxRtTableKey>;
  using Data = std::unique_ptr<jxrt::JxRtTableData>;
  const jxrt::JxRtTable& table(const std::string& name) const { return device_->table(name); }
  Key key(const jxrt::JxRtTable& table, uint32_t n, uint32_t priority) const;
  Key idKey(const jxrt::JxRtTable& table, const char* field, uint32_t id) const;
  Data actionData(const jxrt::JxRtTable& table, const std::string& action, uint64_t seed) const;
  Data reference(const jxrt::JxRtTable& table, const std::string& field, uint32_t id) const;

  const DeviceView* device_;
  uint32_t owner_;
};

}  // namespace jextest
