// The registers as one packet meets them.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "model/machine/registers.h"

namespace jxmodel {

/// A packet that somebody only asks about writes beside the cells, and reads back what it wrote.
class RegisterView {
 public:
  RegisterView(std::deque<RegisterArray>& arrays, bool asks) : arrays_(arrays), asks_(asks) {}

  const RegisterArray& array(uint32_t number) const { return arrays_[number]; }

  /// `index` is below the array's size.
  void read(uint32_t number, uint32_t index, uint64_t* limbs) const {
    if (asks_) {
      const auto found = written_.find({number, index});
      if (found != written_.end()) {
        std::copy(found->second.begin(), found->second.end(), limbs);
        return;
      }
    }
    arrays_[number].read(index, limbs);
  }
  void write(uint32_t number, uint32_t index, const uint64_t* limbs) {
    if (!asks_) return arrays_[number].write(index, limbs);
    written_[{number, index}].assign(limbs, limbs + arrays_[number].limbs());
  }

 private:
  std::deque<RegisterArray>& arrays_;
  const bool asks_;
  std::map<std::pair<uint32_t, uint32_t>, std::vector<uint64_t>> written_;
};

}  // namespace jxmodel
