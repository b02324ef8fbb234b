// What becomes of a packet, and why.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "model/packet/headers.h"

namespace jxmodel {

/// Why a packet goes nowhere.
enum class DropReason : uint8_t {
  kNone,
  kMalformed,   // Outcome::parse says what is wrong
  kDropAction,  // the program says so
  kExpired,     // a time to live or hop limit reached 0
  kNoMember,    // a group without an active member, and no fallback
  kNoEgress,    // the control flow ended without a port
  kNoCopies,    // a multicast group that does not exist or has no port
  kTooOften,    // resubmitted or recirculated too often
  kEndless,     // the program took too many steps
};
inline constexpr size_t kDropReasonCount = static_cast<size_t>(DropReason::kEndless) + 1;

/// "dropped by the program", for people.
const char* reasonOf(DropReason reason);

/// A machine may make several packets of one: then it is forwarded if one of them leaves, and
/// dropped for the last reason if none does.
struct Outcome {
  enum class Kind : uint8_t { kDropped, kForwarded, kFlooded };
  Kind kind = Kind::kDropped;
  uint32_t port = 0;    // kForwarded: of the first packet
  uint32_t copies = 1;  // kForwarded: packets that leave
  DropReason reason = DropReason::kNone;
  ParseStatus parse = ParseStatus::kOk;
};

/// A learn message of one packet.
struct Digest {
  uint32_t learn = 0;           // index into Program::learns
  std::vector<uint8_t> values;  // its fields in order, each in bytesOf(width) bytes
};

}  // namespace jxmodel
