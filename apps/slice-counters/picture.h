// A private picture of parts of the segment, page by page as they are asked for.
#pragma once

#include <cstdint>
#include <vector>

namespace slice_counters {

class Segment;

class Picture {
 public:
  /// Takes address space for a segment of `bytes`; throws std::bad_alloc if there is none.
  Picture(const Segment& segment, uint64_t bytes);
  ~Picture();
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;

  /// Forgets all pages: what is asked for next is copied anew.
  void clear();

  /// Copies what is missing of the `bytes` at `offset`. False if not all of them lie in the
  /// segment.
  bool load(uint64_t offset, uint64_t bytes);

  /// The same for one T at an address of the picture, which may come from anywhere: it has to lie
  /// in the picture, aligned.
  template <typename T>
  bool loadObject(const T* object) {
    const uint64_t offset = offsetOf(object);
    return offset % alignof(T) == 0 && load(offset, sizeof(T));
  }

  template <typename T>
  const T* at(uint64_t offset) const {
    return reinterpret_cast<const T*>(base_ + offset);
  }

  /// How far an address lies behind the start; beyond the size for what is not of the picture.
  uint64_t offsetOf(const void* address) const {
    return reinterpret_cast<uintptr_t>(address) - reinterpret_cast<uintptr_t>(base_);
  }

 private:
  const Segment& segment_;
  const uint64_t size_;
  char* base_;
  std::vector<bool> loaded_;  // by page
};

}  // namespace slice_counters
