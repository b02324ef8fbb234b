#include "wire/notify_frames.h"

#include <algorithm>

namespace jextest {

Bytes idleRecord(uint32_t table, uint32_t entry, uint64_t time, uint8_t device) {
  Bytes record(20);
  record[0] = 0;
  record[1] = device;
  record[2] = 0xAA;  // not written by a sender
  record[3] = 0xBB;
  putU32(record, 4, table);
  putU32(record, 8, entry);
  putU64(record, 12, time);
  return record;
}

Bytes digestRecord(uint32_t learn, uint64_t time, const Bytes& values, uint8_t device) {
  Bytes record(20 + values.size());
  record[0] = 1;
  record[1] = device;
  put<uint16_t>(record, 2, static_cast<uint16_t>(20 + values.size()));
  putU32(record, 4, learn);
  putU64(record, 8, time);
  putU32(record, 16, 0xEEEEEEEE);  // not written by a sender
  std::copy(values.begin(), values.end(), record.begin() + 20);
  return record;
}

Bytes digestRecordOfLength(uint16_t length, const Bytes& values) {
  Bytes record = digestRecord(kAddresses, 5, values);
  put<uint16_t>(record, 2, length);
  return record;
}

Bytes countingBytes(size_t size, uint8_t first) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(first + i);
  return bytes;
}

}  // namespace jextest
