#include "segment.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/interprocess/managed_shared_memory.hpp>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <unordered_set>

#include "picture.h"

namespace slice_counters {
namespace {

namespace bip = boost::interprocess;

using Manager = bip::managed_shared_memory::segment_manager;
using Index = Manager::named_index_t;
using Named = Index::value_type;
using NodeTraits = Index::node_traits;
using Node = NodeTraits::node;
using Header = std::remove_pointer_t<decltype(std::declval<const Named&>().get_block_header())>;

// What the managed segment begins with: a word that says whether it has been made, then the segment
// manager.
constexpr uint32_t kMade = 2;
constexpr uint64_t kManagerAt = bip::ipcdetail::shmem_open_or_create<
    Manager::memory_algorithm>::type::ManagedOpenOrCreateUserOffset;

constexpr size_t kMaxNames = 65536;  // more are no index
constexpr size_t kMaxIdDigits = 10;  // of a 32-bit number
constexpr int kQuickWalks = 10;      // one right after the other; then with pauses
constexpr std::chrono::milliseconds kPause{1};

/// Does not wait if a pipe has taken the name.
int openSegment() {
  return shm_open((std::string("/") + kSegmentName).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK, 0);
}

/// The table id that the `length` characters at `name` spell in decimal, without leading zeros.
bool parseId(const char* name, size_t length, uint32_t* id) {
  if (length == 0 || length > kMaxIdDigits || (name[0] == '0' && length > 1)) return false;
  uint64_t value = 0;
  for (size_t i = 0; i < length; ++i) {
    if (name[i] < '0' || name[i] > '9') return false;
    value = value * 10 + static_cast<uint64_t>(name[i] - '0');
  }
  *id = static_cast<uint32_t>(value);
  return value <= UINT32_MAX;
}

enum class Found { kBlock, kOther, kDamage };

/// What is named by `header`, which has been loaded. Sizes are checked before Boost computes with
/// them.
Found readName(Picture* picture, const Header* header, Block* block) {
  if (header->alloc_type() != bip::named_type || header->sizeof_char() != sizeof(char)) {
    return Found::kDamage;
  }
  const uint64_t bytes = header->value_bytes();
  if (bytes > kSegmentBytes || header->m_value_alignment == 0) return Found::kDamage;
  const uint64_t start = picture->offsetOf(header);
  const uint64_t name_at = start + header->name_offset();
  if (!picture->load(name_at, header->name_length() + size_t{1})) return Found::kDamage;

  const char* const name = picture->at<char>(name_at);
  const bool is_block = header->m_value_alignment == alignof(unsigned char) &&
                        bytes >= kBlockHeaderBytes &&
                        (bytes - kBlockHeaderBytes) % sizeof(PartnerCounterEntry) == 0 &&
                        parseId(name, header->name_length(), &block->table_id);
  if (!is_block) return Found::kOther;
  block->offset = start + header->value_offset();
  block->entries = static_cast<uint32_t>((bytes - kBlockHeaderBytes) / sizeof(PartnerCounterEntry));
  return Found::kBlock;
}

bool lessById(const Block& a, const Block& b) { return a.table_id < b.table_id; }

bool sameId(const Block& a, const Block& b) { return a.table_id == b.table_id; }

}  // namespace

std::vector<Block> inBoth(const std::vector<Block>& one, const std::vector<Block>& other) {
  std::vector<Block> both;
  for (const Block& block : one) {
    const auto at = std::lower_bound(other.begin(), other.end(), block, lessById);
    if (at != other.end() && *at == block) both.push_back(block);
  }
  return both;
}

Segment::~Segment() { detach(); }

void Segment::detach() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

bool Segment::attach(std::string* why) {
  detach();
  fd_ = openSegment();
  const std::string segment = std::string("the shared segment ") + kSegmentName;
  if (fd_ < 0) {
    *why = errno == ENOENT ? "there is no shared segment " + std::string(kSegmentName) +
                                 ": no Partner has started counters"
                           : segment + " cannot be opened: " + std::strerror(errno);
    return false;
  }
  struct stat status {};
  uint32_t state = 0;
  if (fstat(fd_, &status) != 0) {
    *why = segment + " cannot be looked at: " + std::strerror(errno);
  } else if (!S_ISREG(status.st_mode)) {
    *why = segment + " is not a file of shared memory";
  } else if (status.st_size != 0 && static_cast<uint64_t>(status.st_size) != kSegmentBytes) {
    *why = segment + " has " + std::to_string(status.st_size) + " bytes instead of " +
           std::to_string(kSegmentBytes) + ": it was not made by a Partner";
  } else if (!read(0, &state, sizeof state) || state != kMade) {
    *why = segment + " is not ready: it is being made, or its maker has died";
  } else {
    return true;
  }
  detach();
  return false;
}

bool Segment::current() const {
  const int fd = openSegment();
  if (fd < 0) return false;
  struct stat named {};
  struct stat ours {};
  const bool same = fstat(fd, &named) == 0 && fstat(fd_, &ours) == 0 &&
                    named.st_ino == ours.st_ino && named.st_dev == ours.st_dev;
  close(fd);
  return same;
}

bool Segment::read(uint64_t offset, void* to, size_t bytes) const {
  char* at = static_cast<char*>(to);
  while (bytes > 0) {
    const ssize_t got = pread(fd_, at, bytes, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    at += got;
    offset += static_cast<uint64_t>(got);
    bytes -= static_cast<size_t>(got);
  }
  return true;
}

/// One walk through the index, downwards from the root: neither the links upwards nor the colours
/// of the tree matter.
bool Segment::walk(Picture* picture, std::vector<Block>* blocks) const {
  picture->clear();
  blocks->clear();
  if (!picture->load(kManagerAt, sizeof(Manager))) return false;
  const auto end = picture->at<Manager>(kManagerAt)->named_end().base().pointed_node();
  std::vector<const Node*> to_do{NodeTraits::get_parent(end).get()};
  std::unordered_set<const Node*> seen;
  while (!to_do.empty()) {
    const Node* const node = to_do.back();
    to_do.pop_back();
    if (node == nullptr) continue;
    if (!picture->loadObject(node)) return false;
    if (!seen.insert(node).second || seen.size() > kMaxNames) return false;

    const NodeTraits::const_node_ptr link(node);
    const Header* const header = Index::value_traits::to_value_ptr(link)->get_block_header();
    Block block;
    if (!picture->loadObject(header)) return false;
    const Found found = readName(picture, header, &block);
    if (found == Found::kDamage) return false;
    if (found == Found::kBlock) blocks->push_back(block);
    to_do.push_back(NodeTraits::get_right(link).get());
    to_do.push_back(NodeTraits::get_left(link).get());
  }
  std::sort(blocks->begin(), blocks->end(), lessById);
  return std::adjacent_find(blocks->begin(), blocks->end(), sameId) == blocks->end();
}

bool Segment::blocks(std::vector<Block>* blocks) const {
  Picture picture(*this, kSegmentBytes);
  std::vector<Block> earlier;
  bool walked_earlier = false;
  bool agreed_in_part = false;
  const auto deadline = std::chrono::steady_clock::now() + patience_;
  for (int walks = 0; walks < kQuickWalks || std::chrono::steady_clock::now() < deadline; ++walks) {
    if (walks >= kQuickWalks) std::this_thread::sleep_for(kPause);
    std::vector<Block> found;
    if (!walk(&picture, &found)) continue;
    if (walked_earlier) {
      *blocks = inBoth(found, earlier);
      if (found == earlier) return true;
      agreed_in_part = true;
    }
    earlier = std::move(found);
    walked_earlier = true;
  }
  return agreed_in_part;
}

}  // namespace slice_counters
