// The layout of a learn object's digests, and messages of digests that are delivered together.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "jxsdk/types.h"
#include "model/program/program.h"

namespace jxmodel {

/// Where the values of a learn object's fields lie in the bytes of one digest.
struct LearnLayout {
  struct Field {
    uint32_t id = 0;
    uint32_t width = 0;  // bits
    uint32_t offset = 0;
  };
  LearnLayout(const Program& program, const Learn& learn);
  /// Null if there is no field with this id.
  const Field* find(uint32_t field_id) const;

  std::vector<Field> fields;
  uint32_t bytes = 0;  // of one digest
};

/// Digests of one learn object that are delivered together.
struct LearnMessage {
  std::shared_ptr<const LearnLayout> layout;
  uint64_t id = 0;  // never twice in a process, never 0
  uint32_t count = 0;
  std::vector<uint8_t> values;  // of one digest after the other

  const uint8_t* digest(uint32_t index) const {
    return values.data() + size_t{index} * layout->bytes;
  }
};

}  // namespace jxmodel
