#include "model/machine/registers.h"

#include <new>

namespace jxmodel {

RegisterArray::RegisterArray(uint32_t size, uint32_t width)
    : size_(size), width_(width), limbs_(std::max(1U, limbsOf(width))) {
  // Zeroed pages come from the system as they are written.
  void* const memory = std::calloc(size_t{size} * limbs_ + 1, sizeof(std::atomic<uint64_t>));
  if (memory == nullptr) throw std::bad_alloc();
  cells_.reset(static_cast<std::atomic<uint64_t>*>(memory));
}

void RegisterArray::read(uint32_t index, uint64_t* limbs) const {
  const std::atomic<uint64_t>* const at = cell(index);
  if (limbs_ == 1) {
    *limbs = at->load(std::memory_order_relaxed);
    return;
  }
  const MutexLock lock(stripes_[index % kStripes]);
  for (uint32_t i = 0; i < limbs_; ++i) limbs[i] = at[i].load(std::memory_order_relaxed);
}

void RegisterArray::write(uint32_t index, const uint64_t* limbs) {
  std::atomic<uint64_t>* const at = cell(index);
  if (limbs_ == 1) {
    at->store(*limbs, std::memory_order_relaxed);
    return;
  }
  const MutexLock lock(stripes_[index % kStripes]);
  for (uint32_t i = 0; i < limbs_; ++i) at[i].store(limbs[i], std::memory_order_relaxed);
}

void RegisterArray::reset() {
  for (uint32_t index = 0; index < size_; ++index) {
    const MutexLock lock(stripes_[index % kStripes]);
    std::atomic<uint64_t>* const at = cell(index);
    for (uint32_t i = 0; i < limbs_; ++i) {
      // Writes only what is new: a cell that was never written takes no memory.
      if (at[i].load(std::memory_order_relaxed) != 0) at[i].store(0, std::memory_order_relaxed);
    }
  }
}

}  // namespace jxmodel
