// An array of pointers that grows while it is read. One writer; readers stand in a ReadSection.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

#include "model/base/read_copy_update.h"

namespace jxmodel {

template <typename Object>
class GrowingArray {
 public:
  explicit GrowingArray(Reclaimer* reclaimer) : reclaimer_(reclaimer) {}
  ~GrowingArray() { delete block_.load(std::memory_order_relaxed); }
  GrowingArray(const GrowingArray&) = delete;
  GrowingArray& operator=(const GrowingArray&) = delete;

  /// `index` is below size().
  Object* get(size_t index) const {
    return block_.load(std::memory_order_acquire)->at[index].load(std::memory_order_acquire);
  }

  size_t size() const { return size_; }
  void set(size_t index, Object* object) {
    block_.load(std::memory_order_relaxed)->at[index].store(object, std::memory_order_release);
  }
  void append(Object* object) {
    Block* const block = block_.load(std::memory_order_relaxed);
    if (block == nullptr || size_ == block->capacity) grow(block);
    set(size_++, object);
  }

 private:
  struct Block {
    explicit Block(size_t slots) : capacity(slots), at(new std::atomic<Object*>[slots]()) {}
    size_t capacity;
    std::unique_ptr<std::atomic<Object*>[]> at;
  };

  void grow(Block* old) {
    auto* const grown = new Block(old == nullptr ? 16 : old->capacity * 2);
    const size_t filled = old == nullptr ? 0 : old->capacity;
    for (size_t i = 0; i < filled; ++i) {
      grown->at[i].store(old->at[i].load(std::memory_order_relaxed), std::memory_order_relaxed);
    }
    block_.store(grown, std::memory_order_release);
    retire(reclaimer_, old);
  }

  Reclaimer* reclaimer_;
  std::atomic<Block*> block_{nullptr};
  size_t size_ = 0;  // the writer's
};

}  // namespace jxmodel
