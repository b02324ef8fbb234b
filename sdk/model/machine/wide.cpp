#include "model/machine/wide.h"

#include <algorithm>

namespace jxmodel {

static_assert(sizeof(boost::multiprecision::limb_type) == sizeof(uint64_t));

Wide wideOf(const uint64_t* limbs, uint32_t count) {
  Wide value;
  auto& backend = value.backend();
  backend.resize(std::max(count, 1U), std::max(count, 1U));
  std::copy_n(limbs, count, backend.limbs());
  backend.normalize();
  return value;
}

void toLimbs(const Wide& value, uint64_t* limbs, uint32_t count) {
  const auto& backend = value.backend();
  const auto have = std::min<uint32_t>(count, static_cast<uint32_t>(backend.size()));
  std::copy_n(backend.limbs(), have, limbs);
  std::fill(limbs + have, limbs + count, uint64_t{0});
  if (value.sign() >= 0) return;
  bool carry = true;  // the complement plus one
  for (uint32_t i = 0; i < count; ++i) {
    limbs[i] = ~limbs[i] + (carry ? 1 : 0);
    carry = carry && limbs[i] == 0;
  }
}

Wide lowBits(const Wide& value, uint32_t bits) {
  const Wide mask = (Wide(1) << bits) - 1;
  return value & mask;
}

}  // namespace jxmodel
