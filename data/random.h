// Random numbers that are the same on every machine.
#pragma once

#include <cstdint>
#include <random>
#include <string_view>

namespace jexdata {

/// The standard fixes what std::mt19937_64 yields, but not what its distributions make of it: all
/// reductions are done here, in integers. At most one number is drawn per full expression, unless
/// the language orders them: otherwise the files depend on the compiler.
class Random {
 public:
  /// `stream` names what the numbers are for. Streams of one seed are independent of each other, so
  /// that a change to one file leaves the others as they are.
  Random(uint64_t seed, std::string_view stream) : engine_(mixed(seed, stream)) {}

  uint64_t bits() { return engine_(); }
  uint32_t bits32() { return static_cast<uint32_t>(engine_() >> 32); }
  /// 0 to `bound` - 1; `bound` is at least 1.
  uint32_t below(uint32_t bound) { return static_cast<uint32_t>((engine_() >> 32) * bound >> 32); }
  /// `low` to `high`, both included; their distance fits 32 bits less one.
  uint32_t between(uint32_t low, uint32_t high) { return low + below(high - low + 1); }
  /// True with a chance of `per_mille` in 1000.
  bool chance(uint32_t per_mille) { return below(1000) < per_mille; }

 private:
  // FNV-1a over the bytes of the seed, the lowest first, and of the name.
  static uint64_t mixed(uint64_t seed, std::string_view stream) {
    uint64_t hash = 0xcbf29ce484222325;
    const auto take = [&hash](uint64_t byte) { hash = (hash ^ byte) * 0x100000001b3; };
    for (unsigned shift = 0; shift < 64; shift += 8) take(seed >> shift & 0xFF);
    for (const char c : stream) take(static_cast<uint8_t>(c));
    return hash;
  }

  std::mt19937_64 engine_;
};

}  // namespace jexdata
