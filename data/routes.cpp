#include "routes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>
#include <unordered_set>
#include <vector>

#include "random.h"

namespace jexdata {
namespace {

/// How many prefixes of a length there are, and how many of these lie in no shorter one.
struct Quota {
  uint8_t length;
  uint32_t prefixes;
  uint32_t uncovered;
};

constexpr Quota kIpv4[] = {
    {8, 16, 16},          {9, 13, 12},        {10, 38, 30},        {11, 103, 80},
    {12, 299, 230},       {13, 581, 420},     {14, 1203, 820},     {15, 2100, 1300},
    {16, 13490, 9500},    {17, 8235, 4300},   {18, 13798, 6600},   {19, 24870, 11500},
    {20, 42611, 19500},   {21, 50750, 22500}, {22, 108623, 52000}, {23, 96510, 40000},
    {24, 537698, 275822}, {25, 20, 0},        {26, 3, 0},          {27, 11, 0},
    {28, 18, 0},          {29, 17, 0},        {30, 3, 0},          {31, 3, 0},
    {32, 886, 60},
};
constexpr uint32_t kMostCoveringIpv4 = 8;

constexpr Quota kIpv6[] = {
    {16, 1, 1},         {19, 2, 2},        {20, 14, 14},      {21, 5, 5},       {22, 9, 9},
    {23, 12, 12},       {24, 40, 36},      {25, 8, 6},        {26, 21, 18},     {27, 24, 20},
    {28, 180, 160},     {29, 4371, 4000},  {30, 1150, 900},   {31, 560, 400},   {32, 22548, 19000},
    {33, 3300, 800},    {34, 2400, 600},   {35, 1250, 300},   {36, 5996, 1500}, {37, 860, 200},
    {38, 1350, 400},    {39, 820, 200},    {40, 13418, 5400}, {41, 640, 100},   {42, 1900, 500},
    {43, 880, 200},     {44, 14365, 6500}, {45, 1010, 200},   {46, 3250, 1200}, {47, 3903, 1300},
    {48, 75488, 36000}, {49, 4, 0},        {52, 12, 0},       {56, 140, 0},     {60, 20, 0},
    {63, 2, 0},         {64, 184, 0},      {127, 4, 0},       {128, 6, 0},
};
constexpr uint32_t kMostCoveringIpv6 = 6;

template <size_t size>
constexpr uint32_t sumOf(const Quota (&quotas)[size], uint32_t Quota::*member) {
  uint32_t sum = 0;
  for (const Quota& quota : quotas) sum += quota.*member;
  return sum;
}
static_assert(sumOf(kIpv4, &Quota::prefixes) == 901'899);
static_assert(sumOf(kIpv4, &Quota::uncovered) == 444'690);
static_assert(sumOf(kIpv6, &Quota::prefixes) == 160'147);

// ---- the two families

struct Ipv4Family {
  using Address = uint32_t;
  static constexpr unsigned kBits = 32;

  static Address masked(Address address, unsigned length) {
    return length == 0 ? 0 : address & ~Address{0} << (kBits - length);
  }
  static Address drawn(Random* random) { return random->bits32(); }
  /// An address that hosts may have: no private network, no loopback, no multicast.
  static Address unicast(Random* random) {
    while (true) {
      const Address address = random->bits32();
      const uint32_t first = address >> 24;
      if (first > 0 && first < 224 && first != 10 && first != 127) return address;
    }
  }
  static std::string text(Address address) {
    return std::to_string(address >> 24) + '.' + std::to_string(address >> 16 & 0xFF) + '.' +
           std::to_string(address >> 8 & 0xFF) + '.' + std::to_string(address & 0xFF);
  }

  /// The prefixes that there are: one bit each up to length 24, of which there are nearly all.
  class Known {
   public:
    bool has(Address address, unsigned length) const {
      if (length > kBitmapLength) return long_.count(keyOf(address, length)) != 0;
      const auto& bits = short_[length];
      return !bits.empty() && bits[address >> (kBits - length)];
    }
    void add(Address address, unsigned length) {
      if (length > kBitmapLength) {
        long_.insert(keyOf(address, length));
        return;
      }
      auto& bits = short_[length];
      if (bits.empty()) bits.resize(size_t{1} << length);
      bits[address >> (kBits - length)] = true;
    }

   private:
    static constexpr unsigned kBitmapLength = 24;
    static uint64_t keyOf(Address address, unsigned length) {
      return uint64_t{address} << 8 | length;
    }
    std::array<std::vector<bool>, kBitmapLength + 1> short_;
    std::unordered_set<uint64_t> long_;
  };
};

struct Ipv6Family {
  struct Address {
    uint64_t high = 0, low = 0;
    bool operator==(const Address& other) const { return high == other.high && low == other.low; }
    bool operator<(const Address& other) const {
      return high != other.high ? high < other.high : low < other.low;
    }
    Address operator|(const Address& other) const { return {high | other.high, low | other.low}; }
    Address operator^(const Address& other) const { return {high ^ other.high, low ^ other.low}; }
  };
  static constexpr unsigned kBits = 128;

  static Address masked(Address address, unsigned length) {
    const auto half = [](uint64_t bits, unsigned kept) {
      return kept == 0 ? 0 : bits & ~uint64_t{0} << (64 - kept);
    };
    return {half(address.high, std::min(length, 64U)),
            half(address.low, length > 64 ? length - 64 : 0)};
  }
  static Address drawn(Random* random) {
    const uint64_t high = random->bits();
    return {high, random->bits()};
  }
  /// An address in one of the blocks that are handed out.
  static Address unicast(Random* random) {
    constexpr uint16_t kBlocks[] = {0x2000, 0x2400, 0x2600, 0x2800, 0x2a00, 0x2c00};  // each a /12
    Address address = drawn(random);
    const uint64_t block = kBlocks[random->below(std::size(kBlocks))];
    address.high = block << 48 | (address.high & ~uint64_t{0} >> 12);
    return address;
  }
  static std::string text(const Address& address);

  class Known {
   public:
    bool has(const Address& address, unsigned length) const {
      return keys_.count({address, length}) != 0;
    }
    void add(const Address& address, unsigned length) { keys_.insert({address, length}); }

   private:
    struct Key {
      Address address;
      unsigned length;
      bool operator==(const Key& other) const {
        return address == other.address && length == other.length;
      }
    };
    struct Hash {
      size_t operator()(const Key& key) const {
        uint64_t hash = (key.address.high ^ key.length) * 0x9E3779B97F4A7C15;
        hash = (hash ^ hash >> 32 ^ key.address.low) * 0x9E3779B97F4A7C15;
        return static_cast<size_t>(hash ^ hash >> 32);
      }
    };
    std::unordered_set<Key, Hash> keys_;
  };
};

/// Hexadecimal groups without leading zeros; the first of the longest runs of two or more zero
/// groups is written as "::".
std::string Ipv6Family::text(const Address& address) {
  std::array<uint32_t, 8> groups{};
  for (unsigned i = 0; i < 4; ++i) {
    groups[i] = static_cast<uint32_t>(address.high >> (48 - 16 * i) & 0xFFFF);
    groups[i + 4] = static_cast<uint32_t>(address.low >> (48 - 16 * i) & 0xFFFF);
  }
  size_t gap = groups.size(), gap_size = 1;
  for (size_t i = 0; i < groups.size(); ++i) {
    size_t end = i;
    while (end < groups.size() && groups[end] == 0) ++end;
    if (end - i > gap_size) {
      gap = i;
      gap_size = end - i;
    }
  }
  std::string text;
  for (size_t i = 0; i < groups.size(); ++i) {
    if (i == gap) {
      text += "::";
      i += gap_size - 1;
      continue;
    }
    if (!text.empty() && text.back() != ':') text += ':';
    bool begun = false;
    for (unsigned shift = 16; shift > 0; shift -= 4) {
      const uint32_t digit = groups[i] >> (shift - 4) & 0xF;
      begun = begun || digit != 0 || shift == 4;
      if (begun) text += "0123456789abcdef"[digit];
    }
  }
  return text;
}

// ---- a table of one family

template <typename Family>
class Table {
 public:
  Table(uint64_t seed, std::string_view stream, uint32_t most_covering)
      : random_(seed, stream), most_covering_(most_covering) {}

  /// Lengths come in ascending order.
  void add(const Quota& quota) {
    const size_t shorter = prefixes_.size();
    for (uint32_t i = 0; i < quota.prefixes; ++i) {
      i < quota.uncovered ? addUncovered(quota.length) : addCovered(quota.length, shorter);
    }
    lengths_.push_back(quota.length);
  }

  /// One line per prefix, sorted.
  std::string text() {
    std::sort(prefixes_.begin(), prefixes_.end());
    std::string text;
    for (const Prefix& prefix : prefixes_) {
      text += Family::text(prefix.address) + '/' + std::to_string(prefix.length) + '\n';
    }
    return text;
  }

 private:
  using Address = typename Family::Address;
  struct Prefix {
    Address address;
    uint8_t length;
    uint8_t covering;  // shorter prefixes that it lies in
    bool operator<(const Prefix& other) const {
      return address == other.address ? length < other.length : address < other.address;
    }
  };

  void addUncovered(uint8_t length) {
    while (true) {
      const Address address = Family::masked(Family::unicast(&random_), length);
      if (known_.has(address, length) || coveringOf(address) > 0) continue;
      keep(address, length, 0);
      return;
    }
  }

  void addCovered(uint8_t length, size_t shorter) {
    while (true) {
      const Prefix& around = parent(shorter);
      const Address drawn = Family::drawn(&random_);
      const Address inside = drawn ^ Family::masked(drawn, around.length);
      const Address address = Family::masked(around.address | inside, length);
      if (known_.has(address, length)) continue;
      const uint32_t covering = coveringOf(address);
      if (covering > most_covering_) continue;
      keep(address, length, covering);
      return;
    }
  }

  /// One of the first `shorter` prefixes. Now and then the deepest of some, so that the greatest
  /// depth is reached.
  const Prefix& parent(size_t shorter) {
    const auto any = [&] { return &prefixes_[random_.below(static_cast<uint32_t>(shorter))]; };
    const Prefix* found = any();
    if (!random_.chance(100)) return *found;
    for (int i = 0; i < 3; ++i) {
      const Prefix* const other = any();
      if (other->covering > found->covering) found = other;
    }
    return *found;
  }

  uint32_t coveringOf(const Address& address) const {
    uint32_t covering = 0;
    for (const uint8_t length : lengths_) {
      covering += known_.has(Family::masked(address, length), length) ? 1 : 0;
    }
    return covering;
  }

  void keep(const Address& address, uint8_t length, uint32_t covering) {
    known_.add(address, length);
    prefixes_.push_back({address, length, static_cast<uint8_t>(covering)});
  }

  Random random_;
  const uint32_t most_covering_;
  typename Family::Known known_;
  std::vector<uint8_t> lengths_;  // shorter than those that are being added
  std::vector<Prefix> prefixes_;
};

}  // namespace

std::string internetRoutes(uint64_t seed) {
  Table<Ipv4Family> ipv4(seed, "routes/ipv4", kMostCoveringIpv4);
  for (const Quota& quota : kIpv4) ipv4.add(quota);
  Table<Ipv6Family> ipv6(seed, "routes/ipv6", kMostCoveringIpv6);
  for (const Quota& quota : kIpv6) ipv6.add(quota);
  return ipv4.text() + ipv6.text();
}

}  // namespace jexdata
