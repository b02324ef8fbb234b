// Random writes to every table of a device; the same for the same seed.
#pragma once

#include <cstdint>
#include <random>

#include "unit/model/model_device.h"

namespace jxmodeltest {

class RandomWrites {
 public:
  RandomWrites(const ModelDevice& device, uint32_t seed) : device_(device), random_(seed) {}

  /// One write of any kind to any table. Values come from small sets, so that writes meet what is
  /// there, and many are refused.
  jx_status_t write();

 private:
  uint32_t pick(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }
  Bytes value(uint32_t width);
  TableUser::KeyPtr key(const TableUser& user, const jxmodel::Table& table);
  TableUser::DataPtr data(const TableUser& user, const jxmodel::Table& table);
  TableUser::DataPtr action(const TableUser& user);
  jx_status_t writeGroup(const TableUser& user);

  const ModelDevice& device_;
  std::mt19937 random_;
};

}  // namespace jxmodeltest
