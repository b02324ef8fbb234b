#include "model/machine/state_layout.h"

#include "model/program/program.h"

namespace jxmodel {

StateLayout::StateLayout(const Machine& described)
    : machine(described), fields(described.fields.size()), headers(described.headers.size()) {
  const auto count = static_cast<uint32_t>(machine.headers.size());
  for (uint32_t i = 0; i < count; ++i) {
    if (machine.headers[i].metadata) place(i);
  }
  metadata_limbs = limbs;
  for (uint32_t i = 0; i < count; ++i) {
    if (machine.headers[i].metadata) continue;
    place(i);
    packet_headers.push_back(i);
  }
}

void StateLayout::place(uint32_t header) {
  const MachineHeader& description = machine.headers[header];
  HeaderSlot& slot = headers[header];
  slot.metadata = description.metadata;
  slot.fixed_bits = description.fixed_bits;
  slot.in_union = description.in_union.value_or(kNoIndex);
  slot.first_limb = limbs;
  for (uint32_t i = 0; i < description.field_count; ++i) {
    const MachineField& field = machine.fields[description.first_field + i];
    FieldSlot& placed = fields[description.first_field + i];
    placed.width = field.width;
    placed.header = header;
    placed.is_signed = field.is_signed;
    placed.limb = limbs;
    if (field.varbit) {
      placed.limbs = 0;
      placed.varbit = slot.varbit = static_cast<uint32_t>(varbits.size());
      varbits.push_back({varbit_bytes, bytesOf(field.width)});
      varbit_bytes += bytesOf(field.width);
    } else {
      placed.limbs = limbsOf(field.width);
      limbs += placed.limbs;
    }
  }
  slot.limbs = limbs - slot.first_limb;
}

}  // namespace jxmodel
