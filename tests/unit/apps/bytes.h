// Values as tests write them down.
#pragma once

#include <initializer_list>

#include "value.h"

namespace jexapps {

inline Bytes bytes(std::initializer_list<int> values) {
  Bytes result;
  for (const int value : values) result.push_back(static_cast<char>(value));
  return result;
}

}  // namespace jexapps
