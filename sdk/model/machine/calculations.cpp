// Hashes and checksums over fields.
#include <algorithm>
#include <cstring>

#include "model/machine/hash.h"
#include "model/machine/machine_run.h"

namespace jxmodel {
namespace {

/// Puts values one behind the other, bit by bit, where there is room for them.
class BitWriter {
 public:
  explicit BitWriter(uint8_t* bytes) : at_(bytes) {}

  void add(const uint64_t* limbs, uint32_t width) {
    for (uint32_t i = limbsOf(width); i-- > 0;) {
      const uint32_t bits = std::min(width - i * 64, 64U);
      if (bits > 32) addFew(limbs[i] >> 32, bits - 32);
      addFew(limbs[i] & 0xFFFF'FFFF, std::min(bits, 32U));
    }
  }
  void addBytes(const uint8_t* bytes, size_t count) {
    if (pending_ != 0) {
      for (size_t i = 0; i < count; ++i) addFew(bytes[i], 8);
    } else if (count != 0) {
      std::memcpy(at_, bytes, count);
      at_ += count;
    }
  }
  /// Bytes that are written already.
  void skip(size_t count) { at_ += count; }
  /// Fills the last byte up with zeros. Returns where they end.
  uint8_t* end() {
    if (pending_ != 0) addFew(0, 8 - pending_);
    return at_;
  }

 private:
  /// Up to 32 bits.
  void addFew(uint64_t value, uint32_t bits) {
    word_ = word_ << bits | value;
    pending_ += bits;
    const uint32_t whole = pending_ / 8;
    if (whole == 0) return;
    pending_ %= 8;
    storeBig(word_ >> pending_, at_, whole);
    at_ += whole;
  }

  uint8_t* at_;
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
  const CompiledCalculation& compiled = machine_.calculations[number];
  const size_t payload = compiled.payload ? frame_.size() - facts_.payload : 0;
  if (scratch_.bytes.size() < compiled.max_bytes + payload) {
    scratch_.bytes.resize(compiled.max_bytes + payload);
  }
  uint8_t* const bytes = scratch_.bytes.data();
  BitWriter writer(bytes);
  const auto isValid = [this](uint32_t header) { return state_.valid[header] != 0; };
  if (compiled.pieces.planned() &&
      std::all_of(compiled.headers.begin(), compiled.headers.end(), isValid)) {
    compiled.pieces.write(state_.limbs.data(), bytes);
    writer.skip(compiled.pieces.bytes());
  } else {
    const InputWriter inputs{layout_, state_, writer};
    for (const auto& input : calculation.inputs) std::visit(inputs, input);
  }
  if (payload != 0) writer.addBytes(frame_.data() + facts_.payload, payload);
  return hashOf(calculation.algorithm, bytes, static_cast<size_t>(writer.end() - bytes));
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
