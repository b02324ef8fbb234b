#include "picture.h"

#include <sys/mman.h>

#include <algorithm>
#include <new>

#include "segment.h"

namespace slice_counters {
namespace {

constexpr uint64_t kPage = 4096;

}  // namespace

Picture::Picture(const Segment& segment, uint64_t bytes)
    : segment_(segment), size_(bytes), loaded_((bytes + kPage - 1) / kPage) {
  void* const memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  base_ = static_cast<char*>(memory);
}

Picture::~Picture() { munmap(base_, size_); }

void Picture::clear() { std::fill(loaded_.begin(), loaded_.end(), false); }

bool Picture::load(uint64_t offset, uint64_t bytes) {
  if (offset > size_ || bytes > size_ - offset) return false;
  if (bytes == 0) return true;
  const uint64_t last = (offset + bytes - 1) / kPage;
  for (uint64_t page = offset / kPage; page <= last; ++page) {
    if (loaded_[page]) continue;
    const uint64_t start = page * kPage;
    if (!segment_.read(start, base_ + start, std::min(kPage, size_ - start))) return false;
    loaded_[page] = true;
  }
  return true;
}

}  // namespace slice_counters
