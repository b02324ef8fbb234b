// Nodes of the control flow and their tables.
#include "model/machine/machine_run.h"

namespace jxmodel {

void MachineRun::runNodes(uint32_t first) {
  exited_ = false;
  for (uint32_t at = first; at != kNoIndex && !exited_;) {
    const CompiledNode& node = machine_.nodes[at];
    switch (node.kind) {
      case CompiledNode::Kind::kTable:
        at = applyTable(machine_.tables[node.index], node);
        break;
      case CompiledNode::Kind::kCall:
        at = runCall(machine_.calls[node.index], node);
        break;
      case CompiledNode::Kind::kCondition: {
        const CompiledCondition& condition = machine_.conditions[node.index];
        at = holds(condition, node) ? condition.on_true : condition.on_false;
        break;
      }
    }
  }
}

void MachineRun::writeKey(const std::vector<CompiledKeyPart>& parts, uint8_t* out) {
  for (const CompiledKeyPart& part : parts) {
    switch (part.kind) {
      case CompiledKeyPart::Kind::kWord:
        storeBig(state_.limbs[part.place], out, part.bytes);
        break;
      case CompiledKeyPart::Kind::kHeaderValid:
        storeBig(state_.valid[part.place], out, part.bytes);
        break;
      case CompiledKeyPart::Kind::kField: {
        const FieldSlot& slot = layout_.fields[part.place];
        limbsToBytes(state_.limbs.data() + slot.limb, slot.limbs, out, part.bytes);
        break;
      }
      case CompiledKeyPart::Kind::kExpression:
        evaluator_.value(*part.x, input_, part.width, scratch_.limbs.data());
        limbsToBytes(scratch_.limbs.data(), limbsOf(part.width), out, part.bytes);
        break;
    }
    out += part.bytes;
  }
}

uint32_t MachineRun::applyTable(const CompiledTable& table, const CompiledNode& node) {
  uint8_t* const key = scratch_.key.data();
  if (table.key_pieces.planned()) {
    table.key_pieces.write(state_.limbs.data(), key);
  } else {
    writeKey(table.key, key);
  }
  for (size_t i = 0; i < table.mask.size(); ++i) key[i] &= table.mask[i];
  const MatchTable::Applied applied = machine_.reader.lookUp(*table.state->match, key);
  const bool noted =
      table.ages || table.direct_meter != kNoIndex || table.state->direct_counters != nullptr;
  if (noted && applied.hit) noteTableHit(table, applied.slot, applied.handle);
  const TableReader::Found found = machine_.reader.actionOf(
      *table.state, applied, table.default_action,
      [&]() -> uint64_t { return table.selector == kNoIndex ? 0 : calculate(table.selector); });
  if (trace_ != nullptr) traceTable(table, node, applied, found);
  const CompiledTable::ActionOfTable* action = nullptr;
  for (const CompiledTable::ActionOfTable& one : table.actions) {
    if (one.action == found.action.action) action = &one;
  }
  if (action != nullptr) runAction(*action->compiled, found.action.params);
  return nextOf(table, applied.hit, action);
}

uint32_t MachineRun::nextOf(const CompiledTable& table, bool hit,
                            const CompiledTable::ActionOfTable* action) const {
  if (table.by_hit) return hit ? table.on_hit : table.on_miss;
  return action != nullptr ? action->next : table.base_next;
}

/// What a hit leads to before the entry's action runs.
void MachineRun::noteTableHit(const CompiledTable& table, uint32_t slot, uint32_t handle) {
  const TableState& state = *table.state;
  if (table.direct_meter != kNoIndex) {
    // The cells of a direct meter are numbered like direct counters.
    const uint32_t size = settings_.meters[table.direct_meter].size();
    const Colour colour =
        size == 0 ? Colour::kGreen : meter(table.direct_meter, (handle - 1) % size);
    if (table.meter_target != kNoIndex) {
      store64(table.meter_target, static_cast<uint64_t>(colour));
    }
  }
  if (trace_ == nullptr) noteHit(state, slot, facts_.received, [this] { return now(); });
}

uint32_t MachineRun::runCall(const CompiledCall& call, const CompiledNode& node) {
  if (trace_ != nullptr) traceNode(node, false, false);
  if (call.action != nullptr) runAction(*call.action, call.params.data());
  return call.next;
}

bool MachineRun::holds(const CompiledCondition& condition, const CompiledNode& node) {
  const bool result = evaluator_.isTrue(*condition.x, input_);
  if (trace_ != nullptr) traceNode(node, true, result);
  return result;
}

}  // namespace jxmodel
