// The fields and headers of one packet while it runs.
//
// Invariant: all fields of a header that is not valid are 0, and its varbit is empty. So reading a
// field needs no look at its header; writing does.
#pragma once

#include <cstdint>
#include <vector>

#include "model/machine/state_layout.h"

namespace jxmodel {

struct PacketState {
  std::vector<uint64_t> limbs;        // of fields, cut to their widths; signed ones likewise
  std::vector<uint8_t> valid;         // as Machine::headers; metadata always is
  std::vector<uint32_t> next;         // as Machine::stacks: the element that is extracted next
  std::vector<uint32_t> union_next;   // as Machine::union_stacks
  std::vector<uint8_t> varbit_bytes;  // see VarbitSlot
  std::vector<uint32_t> varbit_bits;  // as StateLayout::varbits: present lengths, whole bytes

  /// Sizes for a machine; all is 0 then.
  void fit(const StateLayout& layout);
  /// The state of a packet that comes in.
  void clear(const StateLayout& layout);
  void clearMetadata(const StateLayout& layout);

  // Headers by index. Metadata stays valid whatever is done.
  void makeInvalid(const StateLayout& layout, uint32_t header);
  /// Valid with all fields 0, unless it is valid already. Other members of its union become
  /// invalid.
  void add(const StateLayout& layout, uint32_t header);
  /// Fields, varbit and validity of a header of the same type.
  void copy(const StateLayout& layout, uint32_t target, uint32_t source);
  /// Both valid and all fields the same, or both invalid.
  bool equal(const StateLayout& layout, uint32_t one, uint32_t other) const;
  void copyVarbit(const StateLayout& layout, uint32_t target_slot, uint32_t source_slot);

  // Stacks by index.
  void push(const StateLayout& layout, uint32_t stack, uint32_t count);
  void pop(const StateLayout& layout, uint32_t stack, uint32_t count);
  void copyStack(const StateLayout& layout, uint32_t target, uint32_t source);
  void copyUnion(const StateLayout& layout, uint32_t target, uint32_t source);
  void copyUnionStack(const StateLayout& layout, uint32_t target, uint32_t source);
  bool unionValid(const StateLayout& layout, uint32_t number) const;

  /// Bytes that a header takes in the packet.
  uint32_t bytesOfHeader(const StateLayout& layout, uint32_t header) const {
    const HeaderSlot& slot = layout.headers[header];
    const uint32_t varbit = slot.varbit == kNoIndex ? 0 : varbit_bits[slot.varbit];
    return (slot.fixed_bits + varbit) / 8;
  }

 private:
  void clearFields(const HeaderSlot& slot);
  void makeOthersInvalid(const StateLayout& layout, uint32_t header);
};

}  // namespace jxmodel
