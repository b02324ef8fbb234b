// What went wrong or happened while packets ran through a machine, counted.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace jxmodel {

enum class MachineEvent : uint8_t {
  // Mistakes of the program; it goes on.
  kIndexOutOfRange,  // of a stack, register, counter or meter
  kDivisionByZero,
  kNegativeShift,
  kAssertionFailed,
  kUnknownGroup,    // a multicast group that does not exist or has no port
  kUnknownSession,  // a clone session that does not exist
  // Cut off.
  kTooManySteps,        // the packet is dropped
  kTooManyGenerations,  // of resubmitted, recirculated or cloned packets
  // What became of packets, beside one in and one out.
  kCloned,
  kReplicated,  // copies of multicast groups
  kResubmitted,
  kRecirculated,
};
inline constexpr size_t kMachineEventCount = static_cast<size_t>(MachineEvent::kRecirculated) + 1;

/// "index out of range", for people.
const char* nameOf(MachineEvent event);

/// Of one packet, added to those of the machine at its end.
class MachineTally {
 public:
  void add(MachineEvent event) {
    ++counts_[static_cast<size_t>(event)];
    any_ = true;
  }
  bool any() const { return any_; }
  uint32_t operator[](size_t event) const { return counts_[event]; }

 private:
  std::array<uint32_t, kMachineEventCount> counts_{};
  bool any_ = false;
};

}  // namespace jxmodel
