// Hashes and checksums over fields.
#include "model/machine/hash.h"
#include "model/machine/machine_run.h"

namespace jxmodel {
namespace {

/// Puts values one behind the other, bit by bit.
class BitWriter {
 public:
  explicit BitWriter(std::vector<uint8_t>& bytes) : bytes_(bytes) { bytes_.clear(); }

  /// Up to 64 bits.
  void add(uint64_t value, uint32_t bits) {
    if (bits > 32) {
      addFew(value >> 32, bits - 32);
      addFew(value & 0xFFFF'FFFF, 32);
    } else {
      addFew(value, bits);
    }
  }
  void add(const uint64_t* limbs, uint32_t width) {
    for (uint32_t i = limbsOf(width); i-- > 0;) {
      const uint32_t bits = std::min(width - i * 64, 64U);
      add(limbs[i], bits);
    }
  }
  void addBytes(const uint8_t* bytes, size_t count) {
    if (pending_ == 0) {
      bytes_.insert(bytes_.end(), bytes, bytes + count);
      return;
    }
    for (size_t i = 0; i < count; ++i) addFew(bytes[i], 8);
  }
  /// Fills the last byte up with zeros.
  void end() {
    if (pending_ != 0) addFew(0, 8 - pending_);
  }

 private:
  /// Up to 32 bits.
  void addFew(uint64_t value, uint32_t bits) {
    word_ = word_ << bits | value;
    pending_ += bits;
    while (pending_ >= 8) {
      pending_ -= 8;
      bytes_.push_back(static_cast<uint8_t>(word_ >> pending_));
    }
  }

  std::vector<uint8_t>& bytes_;
  uint64_t word_ = 0;     // the bits that are no whole byte yet are its last ones
  uint32_t pending_ = 0;  // how many
};

/// The bits of the inputs of one calculation.
struct InputWriter {
  const StateLayout& layout;
  const PacketState& state;
  BitWriter& out;

  void operator()(const FieldInput& input) const {
    const FieldSlot& slot = layout.fields[input.field];
    if (state.valid[slot.header] != 0) addField(slot);
  }
  void operator()(const HeaderInput& input) const {
    if (state.valid[input.header] == 0) return;
    const MachineHeader& header = layout.machine.headers[input.header];
    for (uint32_t i = 0; i < header.field_count; ++i) {
      addField(layout.fields[header.first_field + i]);
    }
  }
  void operator()(const ConstantInput& input) const {
    std::vector<uint64_t> limbs(limbsOf(input.width));
    bytesToLimbs(input.value.magnitude.data(), static_cast<uint32_t>(input.value.magnitude.size()),
                 limbs.data(), limbsOf(input.width));
    cutTop(limbs.data(), input.width);
    out.add(limbs.data(), input.width);
  }
  void operator()(const PayloadInput&) const {}  // comes last

  void addField(const FieldSlot& slot) const {
    if (slot.varbit == kNoIndex) return out.add(state.limbs.data() + slot.limb, slot.width);
    out.addBytes(state.varbit_bytes.data() + layout.varbits[slot.varbit].offset,
                 state.varbit_bits[slot.varbit] / 8);
  }
};

}  // namespace

uint64_t MachineRun::calculate(uint32_t number) {
  const Calculation& calculation = machine_.machine.calculations[number];
  if (calculation.algorithm == HashAlgorithm::kRandom) {
    return asked_random_ ? asked_random_->next() : settings_.random.next();
  }
  BitWriter writer(scratch_.bytes);
  const InputWriter inputs{layout_, state_, writer};
  bool payload = false;
  for (const auto& input : calculation.inputs) {
    std::visit(inputs, input);
    payload = payload || std::holds_alternative<PayloadInput>(input);
  }
  if (payload) writer.addBytes(frame_.data() + facts_.payload, frame_.size() - facts_.payload);
  writer.end();
  return hashOf(calculation.algorithm, scratch_.bytes.data(), scratch_.bytes.size());
}

void MachineRun::verifyChecksums() {
  bool wrong = false;
  for (const CompiledChecksum& checksum : machine_.checksums) {
    if (!checksum.source->verify) continue;
    const FieldSlot& slot = layout_.fields[checksum.source->target];
    if (state_.valid[slot.header] == 0) continue;
    if (checksum.x != nullptr && !evaluator_.isTrue(*checksum.x, input_)) continue;
    const uint64_t value = calculate(checksum.source->calculation) & maskOf(slot.width);
    wrong = wrong || value != state_.limbs[slot.limb];
  }
  put(machine_.standard.checksum_error, wrong ? 1 : 0);
}

void MachineRun::updateChecksums() {
  for (const CompiledChecksum& checksum : machine_.checksums) {
    if (!checksum.source->update) continue;
    if (checksum.x != nullptr && !evaluator_.isTrue(*checksum.x, input_)) continue;
    const FieldSlot& slot = layout_.fields[checksum.source->target];
    if (state_.valid[slot.header] == 0) continue;
    const uint64_t value = calculate(checksum.source->calculation);
    state_.limbs[slot.limb] = value & maskOf(slot.width);
    for (uint32_t i = 1; i < slot.limbs; ++i) state_.limbs[slot.limb + i] = 0;
  }
}

}  // namespace jxmodel
