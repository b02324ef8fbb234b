// A device of the model for one test, and short ways to its tables.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "jxsdk/rt.hpp"
#include "model/device/registry.h"
#include "model/runtime/rt_table.h"

namespace jxmodeltest {

using Bytes = std::vector<uint8_t>;

/// Brings the SDK up; as often as wanted.
void bringSdkUp();

/// A program that is delivered ("router").
std::shared_ptr<const jxmodel::Program> delivered(const std::string& name);
/// A small program with a table of each kind and match kind.
std::shared_ptr<const jxmodel::Program> everyKind();

/// A device as long as this object lives.
class ModelDevice {
 public:
  using Kind = jxmodel::Device::Kind;
  ModelDevice(jx_dev_id_t id, Kind kind,
              std::vector<std::shared_ptr<const jxmodel::Program>> programs,
              uint32_t handle_base = 0);
  ~ModelDevice();
  ModelDevice(const ModelDevice&) = delete;
  ModelDevice& operator=(const ModelDevice&) = delete;

  jxmodel::Device& device() { return *device_; }
  jx_rt_target_t target() const { return {device_->id(), JX_PIPE_ALL, 0, 0}; }
  const jxrt::JxRtSession& session() const { return *session_; }

  /// A table by its name, of any of the programs; there has to be one.
  const jxrt::JxRtTable& table(const std::string& name) const;
  jxmodel::TableState& state(const std::string& name) const;
  std::vector<const jxrt::JxRtTable*> tables() const;

  /// All that the tables hold, one line an entry, in the same order on every device.
  std::vector<std::string> dump() const;

 private:
  std::shared_ptr<jxmodel::Device> device_;
  std::shared_ptr<jxrt::JxRtSession> session_;
};

/// One table of a device, written in short form.
class TableUser {
 public:
  TableUser(const ModelDevice& device, const std::string& name)
      : device_(device), table_(device.table(name)) {}

  const jxrt::JxRtTable& operator*() const { return table_; }
  std::unique_ptr<jxrt::JxRtTableKey> key() const;
  /// A key whose first field, an exact one, has this value.
  std::unique_ptr<jxrt::JxRtTableKey> key(uint64_t value) const;
  /// A key whose first field has this prefix.
  std::unique_ptr<jxrt::JxRtTableKey> prefix(uint64_t value, uint16_t length) const;
  std::unique_ptr<jxrt::JxRtTableData> data() const;
  /// Data with an action; the values are its first parameters.
  std::unique_ptr<jxrt::JxRtTableData> data(const std::string& action,
                                            const std::vector<uint64_t>& values) const;
  /// Data with a field that belongs to no action.
  std::unique_ptr<jxrt::JxRtTableData> data(uint32_t field, uint64_t value) const;
  std::unique_ptr<jxrt::JxRtTableData> members(const std::vector<uint32_t>& ids) const;
  std::unique_ptr<jxrt::JxRtTableData> members(const std::vector<uint32_t>& ids,
                                               const std::vector<bool>& active) const;

  using KeyPtr = std::unique_ptr<jxrt::JxRtTableKey>;
  using DataPtr = std::unique_ptr<jxrt::JxRtTableData>;
  jx_status_t add(const KeyPtr& key, const DataPtr& data) const;
  jx_status_t mod(const KeyPtr& key, const DataPtr& data) const;
  jx_status_t move(const KeyPtr& key) const;
  jx_status_t del(const KeyPtr& key) const;
  jx_status_t get(const KeyPtr& key, const DataPtr& data) const;
  jx_status_t setDefault(const DataPtr& data) const;
  jx_status_t clearDefault() const;
  jx_status_t getDefault(const DataPtr& data) const;
  jx_status_t groupAdd(uint32_t group, uint32_t member) const;
  jx_status_t groupDel(uint32_t group, uint32_t member) const;
  jx_status_t groupActivate(uint32_t group, uint32_t member) const;
  jx_status_t groupDeactivate(uint32_t group, uint32_t member) const;
  jx_status_t setFallback(uint32_t member) const;
  jx_status_t clearFallback() const;
  uint32_t usage() const;
  /// The handle of an entry; 0 if there is none.
  uint32_t handle(const KeyPtr& key) const;

 private:
  const ModelDevice& device_;
  const jxrt::JxRtTable& table_;
};

}  // namespace jxmodeltest
