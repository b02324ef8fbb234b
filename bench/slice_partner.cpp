#include "slice_partner.h"

#include <algorithm>
#include <memory>
#include <random>

#include "JexHybridSlice/JexPartnerLib.h"
#include "child.h"
#include "switch_side.h"

namespace bench {
namespace {

using jxpipelinetest::Prefix;
using jxpipelinetest::Rule;

constexpr jx_dev_id_t kVirtual = 1;
constexpr size_t kChurnedEntries = 100'000;

/// One table of the virtual device, and what is churned of it.
class Table {
 public:
  using Key = std::unique_ptr<jxrt::JxRtTableKey>;
  using Data = std::unique_ptr<jxrt::JxRtTableData>;

  Table(const jxrt::JxRtSession& session, const char* name)
      : session_(session), target_(targetOf(kVirtual)), table_(findTable(kVirtual, name)) {}

  Key key() const {
    Key key;
    check(table_.keyAllocate(&key), "key");
    return key;
  }
  uint32_t keyField(const char* name) const {
    uint32_t id = 0;
    check(table_.keyFieldIdGet(name, &id), name);
    return id;
  }
  /// With one parameter, unless `param` is null.
  Data action(const char* name, const char* param, uint64_t value) const {
    uint32_t action = 0, field = 0;
    check(table_.actionIdGet(name, &action), name);
    Data data;
    check(table_.dataAllocate(action, &data), name);
    if (param == nullptr) return data;
    check(table_.dataFieldIdGet(param, action, &field), param);
    check(data->setValue(field, value), param);
    return data;
  }
  Data member(uint32_t member) const {
    uint32_t field = 0;
    check(table_.dataFieldIdGet(JX_RT_FIELD_MEMBER_ID, &field), "member");
    Data data;
    check(table_.dataAllocate(&data), "member");
    check(data->setValue(field, uint64_t{member}), "member");
    return data;
  }

  void add(const jxrt::JxRtTableKey& key, const jxrt::JxRtTableData& data) {
    check(table_.tableEntryAdd(session_, target_, 0, key, data), "add");
    ++writes_;
  }
  void withdraw(const jxrt::JxRtTableKey& key) {
    check(table_.tableEntryDel(session_, target_, 0, key), "delete");
    ++writes_;
  }
  uint64_t writes() const { return writes_; }

 private:
  const jxrt::JxRtSession& session_;
  const jx_rt_target_t target_;
  const jxrt::JxRtTable& table_;
  uint64_t writes_ = 0;
};

/// An entry that comes and goes; made beforehand, so that only writes are left to do.
struct Entry {
  Table::Key key;
  const jxrt::JxRtTableData* data;
};

/// At most kChurnedEntries of `count`, spread over all of them, in an order that jumps.
std::vector<size_t> churnedOf(size_t count) {
  std::vector<size_t> chosen;
  const size_t step = std::max<size_t>(1, count / kChurnedEntries);
  for (size_t i = 0; i < count; i += step) chosen.push_back(i);
  std::shuffle(chosen.begin(), chosen.end(), std::mt19937(7));
  return chosen;
}

/// Writes to `table` what `entries` say, over and over, until the parent has a line.
void churn(Table& table, const std::vector<Entry>& entries) {
  constexpr size_t kBetweenLooks = 64;
  for (size_t i = 0; i % kBetweenLooks != 0 || !lineWaits(); ++i) {
    const Entry& entry = entries[i % entries.size()];
    table.withdraw(*entry.key);
    table.add(*entry.key, *entry.data);
  }
}

[[noreturn]] void obey(Table& table, const std::vector<Entry>& entries, uint64_t other_writes) {
  for (;;) {
    report({{"updates", other_writes + table.writes()}});
    awaitLine();  // "go"
    churn(table, entries);
    awaitLine();  // "stop"
  }
}

[[noreturn]] void beSwitch(const jxrt::JxRtSession& session, const std::set<uint64_t>& macs) {
  Table smac(session, "smac"), dmac(session, "dmac");
  const Table::Data known = smac.action("known", nullptr, 0);
  const Table::Data forward = dmac.action("forward", "port", kIngressPort + 1);
  const Table::Key source = smac.key();
  check(source->setValue(smac.keyField("meta.ingress_port"), uint64_t{kIngressPort}), "port");
  const uint32_t src = smac.keyField("ethernet.src"), dst = dmac.keyField("ethernet.dst");
  std::vector<Entry> entries;
  for (const uint64_t mac : macs) {
    check(source->setValue(src, mac), "ethernet.src");
    smac.add(*source, *known);
    Table::Key key = dmac.key();
    check(key->setValue(dst, mac), "ethernet.dst");
    dmac.add(*key, *forward);
    entries.push_back({std::move(key), forward.get()});
  }
  obey(dmac, entries, smac.writes());
}

/// Returns how many were written.
uint64_t addRules(const jxrt::JxRtSession& session, const std::vector<Rule>& rules) {
  Table acl(session, "acl");
  const uint32_t src = acl.keyField("ipv4.src"), dst = acl.keyField("ipv4.dst"),
                 protocol = acl.keyField("ipv4.protocol"), sport = acl.keyField("l4.sport"),
                 dport = acl.keyField("l4.dport");
  for (size_t i = 0; i < rules.size(); ++i) {
    const Rule& rule = rules[i];
    const Table::Key key = acl.key();
    check(key->setValueAndMask(src, rule.src, rule.src_mask), "ipv4.src");
    check(key->setValueAndMask(dst, rule.dst, rule.dst_mask), "ipv4.dst");
    check(key->setValueAndMask(protocol, rule.protocol, rule.protocol_mask), "ipv4.protocol");
    check(key->setValueRange(sport, rule.sport_low, rule.sport_high), "l4.sport");
    check(key->setValueRange(dport, rule.dport_low, rule.dport_high), "l4.dport");
    check(key->prioritySet(static_cast<uint32_t>(rules.size() - i)), "priority");
    acl.add(*key, *acl.action("permit", "counter", i + 1));
  }
  return acl.writes();
}

[[noreturn]] void beRouter(const jxrt::JxRtSession& session, const Scenario& scenario) {
  addMembers(session, kVirtual, kNextHops);
  Table lpm(session, "ipv4_lpm");
  std::vector<Table::Data> hops;
  for (uint32_t hop = 1; hop <= kNextHops; ++hop) hops.push_back(lpm.member(hop));
  const uint32_t dst = lpm.keyField("ipv4.dst");
  const auto set = [&](const Table::Key& key, const Prefix& route) {
    check(key->setValueLpm(dst, uint64_t{route.address}, route.length), "ipv4.dst");
  };
  const Table::Key key = lpm.key();
  for (size_t i = 0; i < scenario.routes.size(); ++i) {
    set(key, scenario.routes[i]);
    lpm.add(*key, *hops[i % kNextHops]);
  }
  std::vector<Entry> entries;
  for (const size_t i : churnedOf(scenario.routes.size())) {
    entries.push_back({lpm.key(), hops[i % kNextHops].get()});
    set(entries.back().key, scenario.routes[i]);
  }
  obey(lpm, entries, kNextHops + addRules(session, scenario.rules));
}

}  // namespace

void slicePartner(const Case& one, const Scenario& scenario) {
  const std::shared_ptr<jxrt::JxRtSession> session = jxrt::JxRtSession::sessionCreate();
  const std::string file = programFile(one.program);
  Profile profile(file);
  PartnerLibStartup(*session, targetOf(kVirtual), JX_DEV_TYPE_ANY, profile.get());
  if (one.program == "router") beRouter(*session, scenario);
  beSwitch(*session, scenario.macs);
}

}  // namespace bench
