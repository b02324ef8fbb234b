#include "model/machine/packet_state.h"

#include <algorithm>

namespace jxmodel {

void PacketState::fit(const StateLayout& layout) {
  const Machine& machine = layout.machine;
  limbs.assign(layout.limbs, 0);
  next.assign(machine.stacks.size(), 0);
  union_next.assign(machine.union_stacks.size(), 0);
  varbit_bytes.assign(layout.varbit_bytes, 0);
  varbit_bits.assign(layout.varbits.size(), 0);
  valid.assign(machine.headers.size(), 0);
  for (size_t i = 0; i < valid.size(); ++i) valid[i] = layout.headers[i].metadata ? 1 : 0;
}

void PacketState::clear(const StateLayout& layout) {
  clearMetadata(layout);
  for (const uint32_t header : layout.packet_headers) {
    if (valid[header] == 0) continue;
    valid[header] = 0;
    clearFields(layout.headers[header]);
  }
  std::fill(next.begin(), next.end(), 0);
  std::fill(union_next.begin(), union_next.end(), 0);
}

void PacketState::clearMetadata(const StateLayout& layout) {
  std::fill_n(limbs.begin(), layout.metadata_limbs, uint64_t{0});
}

void PacketState::clearFields(const HeaderSlot& slot) {
  std::fill_n(limbs.begin() + slot.first_limb, slot.limbs, uint64_t{0});
  if (slot.varbit != kNoIndex) varbit_bits[slot.varbit] = 0;
}

void PacketState::makeInvalid(const StateLayout& layout, uint32_t header) {
  const HeaderSlot& slot = layout.headers[header];
  if (slot.metadata || valid[header] == 0) return;
  valid[header] = 0;
  clearFields(slot);
}

void PacketState::makeOthersInvalid(const StateLayout& layout, uint32_t header) {
  const uint32_t number = layout.headers[header].in_union;
  if (number == kNoIndex) return;
  for (const uint32_t member : layout.machine.unions[number].headers) {
    if (member != header) makeInvalid(layout, member);
  }
}

void PacketState::add(const StateLayout& layout, uint32_t header) {
  if (valid[header] != 0) return;
  valid[header] = 1;  // the fields are 0 already
  if (layout.headers[header].in_union != kNoIndex) makeOthersInvalid(layout, header);
}

void PacketState::copy(const StateLayout& layout, uint32_t target, uint32_t source) {
  if (target == source) return;
  if (valid[source] == 0) return makeInvalid(layout, target);
  const HeaderSlot& to = layout.headers[target];
  const HeaderSlot& from = layout.headers[source];
  std::copy_n(limbs.begin() + from.first_limb, std::min(to.limbs, from.limbs),
              limbs.begin() + to.first_limb);
  if (to.varbit != kNoIndex && from.varbit != kNoIndex) copyVarbit(layout, to.varbit, from.varbit);
  valid[target] = 1;
  makeOthersInvalid(layout, target);
}

void PacketState::copyVarbit(const StateLayout& layout, uint32_t target_slot,
                             uint32_t source_slot) {
  const VarbitSlot& to = layout.varbits[target_slot];
  const VarbitSlot& from = layout.varbits[source_slot];
  const uint32_t bits = std::min(varbit_bits[source_slot], to.max_bytes * 8);
  std::copy_n(varbit_bytes.begin() + from.offset, bits / 8, varbit_bytes.begin() + to.offset);
  varbit_bits[target_slot] = bits;
}

bool PacketState::equal(const StateLayout& layout, uint32_t one, uint32_t other) const {
  if (valid[one] != valid[other]) return false;
  const HeaderSlot& left = layout.headers[one];
  const HeaderSlot& right = layout.headers[other];
  if (left.limbs != right.limbs || (left.varbit == kNoIndex) != (right.varbit == kNoIndex))
    return false;
  const auto fields = limbs.begin() + left.first_limb;
  if (!std::equal(fields, fields + left.limbs, limbs.begin() + right.first_limb)) return false;
  if (left.varbit == kNoIndex) return true;
  if (varbit_bits[left.varbit] != varbit_bits[right.varbit]) return false;
  const auto bytes = varbit_bytes.begin() + layout.varbits[left.varbit].offset;
  return std::equal(bytes, bytes + varbit_bits[left.varbit] / 8,
                    varbit_bytes.begin() + layout.varbits[right.varbit].offset);
}

void PacketState::push(const StateLayout& layout, uint32_t stack, uint32_t count) {
  const std::vector<uint32_t>& elements = layout.machine.stacks[stack].headers;
  const auto size = static_cast<uint32_t>(elements.size());
  count = std::min(count, size);
  for (uint32_t i = size; i-- > count;) copy(layout, elements[i], elements[i - count]);
  for (uint32_t i = 0; i < count; ++i) makeInvalid(layout, elements[i]);
  next[stack] = std::min(size, next[stack] + count);
}

void PacketState::pop(const StateLayout& layout, uint32_t stack, uint32_t count) {
  const std::vector<uint32_t>& elements = layout.machine.stacks[stack].headers;
  const auto size = static_cast<uint32_t>(elements.size());
  count = std::min(count, size);
  for (uint32_t i = 0; i + count < size; ++i) copy(layout, elements[i], elements[i + count]);
  for (uint32_t i = size - count; i < size; ++i) makeInvalid(layout, elements[i]);
  next[stack] -= std::min(count, next[stack]);
}

void PacketState::copyStack(const StateLayout& layout, uint32_t target, uint32_t source) {
  const std::vector<uint32_t>& to = layout.machine.stacks[target].headers;
  const std::vector<uint32_t>& from = layout.machine.stacks[source].headers;
  const size_t count = std::min(to.size(), from.size());
  for (size_t i = 0; i < count; ++i) copy(layout, to[i], from[i]);
  next[target] = std::min(next[source], static_cast<uint32_t>(to.size()));
}

void PacketState::copyUnion(const StateLayout& layout, uint32_t target, uint32_t source) {
  if (target == source) return;
  const std::vector<uint32_t>& to = layout.machine.unions[target].headers;
  const std::vector<uint32_t>& from = layout.machine.unions[source].headers;
  const size_t count = std::min(to.size(), from.size());
  for (size_t i = 0; i < count; ++i) copy(layout, to[i], from[i]);
}

void PacketState::copyUnionStack(const StateLayout& layout, uint32_t target, uint32_t source) {
  const std::vector<uint32_t>& to = layout.machine.union_stacks[target].unions;
  const std::vector<uint32_t>& from = layout.machine.union_stacks[source].unions;
  const size_t count = std::min(to.size(), from.size());
  for (size_t i = 0; i < count; ++i) copyUnion(layout, to[i], from[i]);
  union_next[target] = std::min(union_next[source], static_cast<uint32_t>(to.size()));
}

bool PacketState::unionValid(const StateLayout& layout, uint32_t number) const {
  const std::vector<uint32_t>& members = layout.machine.unions[number].headers;
  return std::any_of(members.begin(), members.end(),
                     [this](uint32_t member) { return valid[member] != 0; });
}

}  // namespace jxmodel
