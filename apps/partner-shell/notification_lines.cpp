#include "notification_lines.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

namespace jexapps {
namespace {

using Json = nlohmann::ordered_json;

// Records need not be aligned.
template <typename Record>
Record recordAt(const void* record) {
  Record copy;
  std::memcpy(&copy, record, sizeof copy);
  return copy;
}

uint8_t kindOf(const void* record) { return *static_cast<const uint8_t*>(record); }

const uint8_t* valuesAt(const void* record) {
  return static_cast<const uint8_t*>(record) + sizeof(PartnerDigestNotify);
}

uint64_t ageOf(uint64_t time, uint64_t now) { return now > time ? now - time : 0; }

std::string lineOf(const Json& object) {
  return object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::string ageText(uint64_t time, uint64_t now) {
  return " age=" + std::to_string(ageOf(time, now)) + "ms\n";
}

template <typename Facts>
const Facts* findById(const std::vector<Facts>& all, uint32_t id) {
  const auto it =
      std::find_if(all.begin(), all.end(), [&](const Facts& facts) { return facts.id == id; });
  return it == all.end() ? nullptr : &*it;
}

NamedValues keyOf(const EntryView& entry) {
  NamedValues values;
  for (const KeyFieldView& field : entry.key) appendNamed(field, &values);
  return values;
}

// What a digest carries that does not fit its description here.
NamedValues rawValues(const void* record, uint32_t size) {
  if (size == 0) return {};
  const uint8_t* bytes = valuesAt(record);
  std::string value = "0x";
  for (uint32_t i = 0; i < size; ++i) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
    value += digits;
  }
  return {{"bytes", std::move(value)}};
}

}  // namespace

std::string NotificationLines::render(const std::vector<void*>& records, uint64_t now) const {
  const KeysOfTables keys = keysOf(records);
  std::string lines;
  for (const void* record : records) {
    switch (kindOf(record)) {
      case PARTNER_NOTIFY_IDLE:
        lines += renderIdle(recordAt<PartnerIdleNotify>(record), keys, now);
        break;
      case PARTNER_NOTIFY_DIGEST:
        lines += renderDigest(record, now);
        break;
      default:  // the library hands out no others: how long this one is, nobody knows
        lines += renderUnknown(kindOf(record));
    }
  }
  return lines;
}

// One walk through each table that is named, whatever the number of records.
NotificationLines::KeysOfTables NotificationLines::keysOf(const std::vector<void*>& records) const {
  KeysOfTables keys;
  for (const void* record : records) {
    if (kindOf(record) != PARTNER_NOTIFY_IDLE) continue;
    const auto idle = recordAt<PartnerIdleNotify>(record);
    keys[idle.tableId][idle.entryKey];
  }
  for (auto& [table_id, wanted] : keys) {
    const TableFacts* const facts = table(table_id);
    if (facts == nullptr) continue;
    Keys& keys_of_table = wanted;
    const auto keep_key = [&](const EntryView& entry) {
      if (entry.kind != EntryKind::kEntry) return;
      const auto it = keys_of_table.find(entry.handle);
      if (it != keys_of_table.end()) it->second = keyOf(entry);
    };
    // Where the table cannot be read, keys are unknown: no reason to lose the notifications.
    static_cast<void>(forEachEntry(*facts, session_, target_, keep_key));
  }
  return keys;
}

std::string NotificationLines::renderIdle(const PartnerIdleNotify& record, const KeysOfTables& keys,
                                          uint64_t now) const {
  const TableFacts* const facts = table(record.tableId);
  const NamedValues& key = keys.at(record.tableId).at(record.entryKey);
  const std::string name = facts != nullptr ? facts->name : std::to_string(record.tableId);
  if (format_ == Format::kJson) {
    return lineOf({{"kind", "idle"},
                   {"program", facts != nullptr ? facts->program : ""},
                   {"table", name},
                   {"device", record.devId},
                   {"handle", uint32_t{record.entryKey}},
                   {"key", key.empty() ? Json() : jsonOf(key)},
                   {"time", uint64_t{record.time}},
                   {"age", ageOf(record.time, now)}});
  }
  return "idle " + name + " #" + std::to_string(record.entryKey) +
         (key.empty() ? " (key unknown)" : textOf(key)) + ageText(record.time, now);
}

std::string NotificationLines::renderUnknown(uint8_t kind) const {
  if (format_ == Format::kJson) return lineOf({{"kind", kind}});
  return "unknown kind=" + std::to_string(kind) + "\n";
}

std::string NotificationLines::renderDigest(const void* record, uint64_t now) const {
  const auto head = recordAt<PartnerDigestNotify>(record);
  const DigestFacts* const facts = digest(head.learnId);
  const NamedValues values = facts != nullptr && facts->valueBytes() == head.valueSize
                                 ? valuesOf(*facts, record)
                                 : rawValues(record, head.valueSize);
  const std::string name = facts != nullptr ? facts->name : std::to_string(head.learnId);
  if (format_ == Format::kJson) {
    return lineOf({{"kind", "digest"},
                   {"program", facts != nullptr ? facts->program : ""},
                   {"digest", name},
                   {"device", head.devId},
                   {"fields", jsonOf(values)},
                   {"time", uint64_t{head.time}},
                   {"age", ageOf(head.time, now)}});
  }
  return "digest " + name + textOf(values) + ageText(head.time, now);
}

NamedValues NotificationLines::valuesOf(const DigestFacts& facts, const void* record) const {
  NamedValues values;
  const char* bytes = reinterpret_cast<const char*>(valuesAt(record));
  for (const DigestFacts::Field& field : facts.fields) {
    const size_t size = bytesOf(field.width);
    std::string value;
    appendValue({field.name, field.width}, {bytes, size}, &value);
    values.emplace_back(field.name, std::move(value));
    bytes += size;
  }
  return values;
}

const TableFacts* NotificationLines::table(uint32_t id) const { return findById(tables_, id); }

const DigestFacts* NotificationLines::digest(uint32_t id) const { return findById(digests_, id); }

}  // namespace jexapps
