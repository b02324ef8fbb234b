// Digests (learn objects) of the switch SDK: their facts by name.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "jxsdk/types.h"

namespace jexapps {

/// What there is to know about one digest, asked for once.
struct DigestFacts {
  struct Field {
    std::string name;
    uint32_t width = 0;  // bits
  };
  std::string program;
  std::string name;
  uint32_t id = 0;
  std::vector<Field> fields;  // in the order in which notifications carry them

  /// Bytes of values in a notification: each field takes whole bytes.
  size_t valueBytes() const;
};

/// The facts of all digests of all programs of a device, in the profile's and the description's
/// order.
jx_status_t readDigestFacts(jx_dev_id_t dev_id, std::vector<DigestFacts>* digests);

}  // namespace jexapps
