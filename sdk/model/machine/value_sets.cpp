#include "model/machine/value_sets.h"

#include <algorithm>

#include "model/machine/limbs.h"
#include "model/program/program.h"

namespace jxmodel {
namespace {

bool sameMember(const MachineSettings::Member& one, const MachineSettings::Member& other) {
  return one.value == other.value && one.mask == other.mask;
}

}  // namespace

/// Why this is no member, empty if it could be.
std::string ValueSetTable::refusal(const Member& member) const {
  const uint32_t bytes = bytesOf(description_.compressed_width);
  if (member.value.size() == bytes && member.mask.size() == bytes) return {};
  return "a member of value set " + description_.name + " has " + std::to_string(bytes) +
         " bytes of value and of mask, not " + std::to_string(member.value.size()) + " and " +
         std::to_string(member.mask.size());
}

std::string ValueSetTable::add(const Member& member) {
  std::string reason = refusal(member);
  if (!reason.empty()) return reason;
  for (const Member& one : members_) {
    if (sameMember(one, member)) return "the member is in value set " + description_.name;
  }
  if (members_.size() >= description_.size) {
    return "value set " + description_.name + " is full: it has room for " +
           std::to_string(description_.size) + " members";
  }
  members_.push_back(member);
  publish();
  return {};
}

std::string ValueSetTable::remove(const Member& member) {
  std::string reason = refusal(member);
  if (!reason.empty()) return reason;
  const auto found = std::find_if(members_.begin(), members_.end(),
                                  [&member](const Member& one) { return sameMember(one, member); });
  if (found == members_.end()) {
    return "the member does not exist in value set " + description_.name;
  }
  members_.erase(found);
  publish();
  return {};
}

/// Each component in whole bytes, as parsers compare them.
std::vector<uint8_t> ValueSetTable::padded(const std::vector<uint8_t>& compressed) const {
  std::vector<uint8_t> all;
  uint64_t bit = compressed.size() * 8 - description_.compressed_width;
  for (const uint32_t width : description_.widths) {
    std::vector<uint64_t> limbs(limbsOf(width));
    loadBits(compressed.data(), bit, width, limbs.data());
    bit += width;
    const size_t end = all.size();
    all.resize(end + bytesOf(width));
    limbsToBytes(limbs.data(), limbsOf(width), all.data() + end, bytesOf(width));
  }
  return all;
}

void ValueSetTable::publish() {
  auto* const published = new std::vector<Member>;
  for (const Member& member : members_) {
    published->push_back({padded(member.value), padded(member.mask)});
  }
  retire(reclaimer_, published_.exchange(published, std::memory_order_acq_rel));
}

bool ValueSetTable::has(const uint8_t* key) const {
  const std::vector<Member>* const published = published_.load(std::memory_order_acquire);
  if (published == nullptr) return false;
  return std::any_of(published->begin(), published->end(), [key](const Member& member) {
    for (size_t i = 0; i < member.value.size(); ++i) {
      if (((key[i] ^ member.value[i]) & member.mask[i]) != 0) return false;
    }
    return true;
  });
}

}  // namespace jxmodel
