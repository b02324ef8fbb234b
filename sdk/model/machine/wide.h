// Numbers of any size: the slow path of expressions.
#pragma once

#include <boost/multiprecision/cpp_int.hpp>
#include <cstdint>

namespace jxmodel {

using Wide = boost::multiprecision::number<boost::multiprecision::cpp_int_backend<>,
                                           boost::multiprecision::et_off>;
__extension__ using Int128 = __int128;

/// The number of `count` words, the least significant first.
Wide wideOf(const uint64_t* limbs, uint32_t count);
/// Writes the two's complement of a number, cut to `count` words.
void toLimbs(const Wide& value, uint64_t* limbs, uint32_t count);
/// value modulo 2^bits: not negative.
Wide lowBits(const Wide& value, uint32_t bits);

}  // namespace jxmodel
