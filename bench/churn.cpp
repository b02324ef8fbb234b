#include "churn.h"

#include <algorithm>
#include <random>
#include <stdexcept>

#include "model/placement/plcmt_info.h"
#include "slots.h"

namespace bench {
namespace {

using jxmodel::MatchResult;
using jxmodel::Placement;

void process(jxmodel::Device& device, jxmodel::TableState& table, const pipe_plcmt_info& info) {
  const jxmodel::MutexLock lock(device.mutex());
  if (processPlacement(table, info) != JX_SUCCESS) throw std::runtime_error("update refused");
}

}  // namespace

Churn::Churn(jxmodel::Device& device, jxmodel::TableState& table) : device_(device), table_(table) {
  for (const uint32_t slot : spreadSlots(*table.match, kEntries)) record(slot);
  if (entries_.empty()) throw std::runtime_error("no entries to withdraw");
  std::shuffle(entries_.begin(), entries_.end(), std::mt19937(7));
  thread_ = std::thread([this] { run(); });
  while (updates() == 0) std::this_thread::yield();
}

Churn::~Churn() {
  ending_ = true;
  thread_.join();
}

void Churn::record(uint32_t slot) {
  const jxmodel::MatchTable& match = *table_.match;
  const MatchResult result = match.resultOf(slot);
  const bool own_action = result.kind == MatchResult::Kind::kAction;
  jxmodel::PlacementHeader header = {};
  header.kind = jxmodel::PlacementKind::kMatch;
  header.table_handle = table_.table->handle;
  header.action_id = own_action ? result.action.action->id : 0;
  jxmodel::PlacementBuffer buffer;
  Placement placement;
  readPlacement(buffer.write(header, match.keyOf(slot), match.codec().keyBytes(),
                             own_action ? result.action.params : nullptr,
                             own_action ? result.action.action->param_bytes : 0),
                &placement);
  Entry& entry = entries_.emplace_back();
  entry.handle = match.handleOf(slot);
  entry.priority = match.priorityOf(slot);
  entry.member_handle = own_action ? 0 : table_.member_state->members->handleOf(result.slot);
  entry.packed.resize(placement.header.total_bytes);
  packPlacement(placement, entry.packed.data());
}

void Churn::run() {
  for (size_t i = 0; !ending_; i = i + 1 == entries_.size() ? 0 : i + 1) {
    withdraw(entries_[i]);
    announce(entries_[i]);
    updates_.fetch_add(2, std::memory_order_relaxed);
  }
}

void Churn::withdraw(const Entry& entry) {
  pipe_plcmt_info info;
  info.op = jxmodel::PlcmtOp::kMatDelete;
  info.handle = entry.handle;
  process(device_, table_, info);
}

void Churn::announce(const Entry& entry) {
  pipe_plcmt_info info;
  info.op = jxmodel::PlcmtOp::kMatAdd;
  info.handle = entry.handle;
  info.priority = entry.priority;
  info.adt_ent_hdl = entry.member_handle;
  if (!decodePlacement(entry.packed.data(), entry.packed.size(), &info.placement)) {
    throw std::runtime_error("placement data cannot be unpacked");
  }
  process(device_, table_, info);
}

}  // namespace bench
