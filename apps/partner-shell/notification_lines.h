// Notifications as people and scripts read them.
//
// As text:  idle smac #7 ethernet.src=02:00:00:00:00:01 meta.ingress_port=3 age=12ms
//           digest mac_learn ethernet.src=02:00:00:00:00:01 meta.ingress_port=3 age=12ms
// As JSON:  {"kind":"idle","program":"l2_switch","table":"smac","device":0,"handle":7,
//            "key":{"ethernet.src":"02:00:00:00:00:01","meta.ingress_port":"3"},
//            "time":123456,"age":12}
//           {"kind":"digest","program":"l2_switch","digest":"mac_learn","device":0,
//            "fields":{"ethernet.src":"02:00:00:00:00:01","meta.ingress_port":"3"},
//            "time":123456,"age":12}
// Times are milliseconds: `time` of sending, `age` from then until now. The key of an entry that
// this partner does not have (it has been deleted, or is another partner's) is null.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "named_values.h"
#include "partner.h"

namespace jexapps {

class NotificationLines {
 public:
  enum class Format : uint8_t { kText, kJson };

  /// Everything that is named has to outlive this.
  NotificationLines(const std::vector<TableFacts>& tables, const std::vector<DigestFacts>& digests,
                    const jxrt::JxRtSession& session, const jx_rt_target_t& target, Format format)
      : tables_(tables), digests_(digests), session_(session), target_(target), format_(format) {}

  /// A line for each record, which begins with a PartnerIdleNotify or a PartnerDigestNotify. `now`
  /// is the time that ages are reckoned to. What does not fit the programs is shown as it is.
  std::string render(const std::vector<void*>& records, uint64_t now) const;

 private:
  // Entries that records name, with what there is to show of their keys.
  using Keys = std::unordered_map<uint32_t, NamedValues>;  // by handle
  using KeysOfTables = std::map<uint32_t, Keys>;           // by table id

  KeysOfTables keysOf(const std::vector<void*>& records) const;
  std::string renderIdle(const PartnerIdleNotify& record, const KeysOfTables& keys,
                         uint64_t now) const;
  std::string renderUnknown(uint8_t kind) const;
  std::string renderDigest(const void* record, uint64_t now) const;
  NamedValues valuesOf(const DigestFacts& digest, const void* record) const;
  const TableFacts* table(uint32_t id) const;
  const DigestFacts* digest(uint32_t id) const;

  const std::vector<TableFacts>& tables_;
  const std::vector<DigestFacts>& digests_;
  const jxrt::JxRtSession& session_;
  const jx_rt_target_t& target_;
  Format format_;
};

}  // namespace jexapps
