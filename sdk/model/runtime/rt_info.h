// One program on one device: owns its tables and learn objects.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "jxsdk/rt.hpp"
#include "model/notify/idle_watch.h"
#include "model/notify/learn_channel.h"
#include "model/program/program.h"
#include "model/runtime/rt_learn.h"
#include "model/runtime/rt_table.h"
#include "model/tables/table_state.h"

namespace jxmodel {

class RtInfo final : public jxrt::JxRtInfo {
 public:
  /// `handle_base`: see HandleSpace.
  RtInfo(const DeviceCore& device, std::shared_ptr<const Program> program,
         std::optional<uint32_t> handle_base);

  jx_status_t p4NameGet(std::string* name) const override;
  jx_status_t tablesGet(std::vector<const jxrt::JxRtTable*>* tables) const override;
  jx_status_t tableFromNameGet(const std::string& name,
                               const jxrt::JxRtTable** table) const override;
  jx_status_t tableFromIdGet(uint32_t id, const jxrt::JxRtTable** table) const override;
  jx_status_t learnsGet(std::vector<jxrt::JxRtLearn*>* learns) const override;
  jx_status_t learnFromNameGet(const std::string& name, jxrt::JxRtLearn** learn) const override;
  jx_status_t learnFromIdGet(uint32_t id, jxrt::JxRtLearn** learn) const override;

  const Program& program() const { return *program_; }
  /// As Program::tables.
  std::vector<TableState*> states() const;
  /// By index into Program::tables.
  const RtTable& table(uint32_t index) const { return *tables_[index]; }
  /// As Program::tables; null where entries do not age, and on a virtual device.
  const std::vector<std::unique_ptr<IdleWatch>>& watches() const { return watches_; }
  /// As Program::learns; empty on a virtual device.
  const std::vector<std::unique_ptr<LearnChannel>>& channels() const { return channels_; }

 private:
  void makeState(uint32_t index, std::optional<uint32_t> handle_base, Reclaimer* reclaimer);

  std::shared_ptr<const Program> program_;
  std::vector<std::unique_ptr<TableState>> states_;  // as Program::tables
  std::vector<std::unique_ptr<IdleWatch>> watches_;  // as Program::tables
  std::vector<std::unique_ptr<RtTable>> tables_;     // as Program::tables
  std::vector<std::unique_ptr<LearnChannel>> channels_;
  std::vector<std::unique_ptr<RtLearn>> learns_;  // as Program::learns
};

}  // namespace jxmodel
