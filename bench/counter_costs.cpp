#include "counter_costs.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "JexHybridSlice/JexPartnerLibClient.h"
#include "JexHybridSlice/JexPartnerLibCounter.h"
#include "JexHybridSlice/JexPartnerLibWire.h"
#include "child.h"
#include "clock.h"
#include "jxsdk/drv.h"
#include "partner_process.h"

namespace bench {
namespace {

using PartnerLib::CounterShm;

constexpr char kCountersProgram[] = "counter_costs";
constexpr uint32_t kSmall = 64 * 1024;
constexpr uint32_t kLarge = 1024 * 1024;

std::string writeProgram() {
  const std::string path = "/tmp/jex-bench-counters.json";
  std::ofstream(path)
      << R"({"name": "counter_costs", "id": 9, "fields": [], "actions": [], "control": [], "learn": [], "tables": [)"
      << R"({"name": "small", "kind": "counter", "size": )" << kSmall << "},"
      << R"({"name": "large", "kind": "counter", "size": )" << kLarge << "}]}";
  return path;
}

const jx_rt_table_hdl* tableOf(const char* name, uint32_t* id) {
  const jx_rt_info_hdl* info = nullptr;
  check(jx_rt_info_get(kPhysical, kCountersProgram, &info), kCountersProgram);
  const jx_rt_table_hdl* table = nullptr;
  check(jx_rt_table_from_name_get(info, name, &table), name);
  check(jx_rt_table_id_get(table, id), name);
  return table;
}

template <typename Work>
double costOf(uint32_t entries, const Work& work) {
  const uint64_t begin = threadCpu();
  work();
  return static_cast<double>(threadCpu() - begin) / entries;
}

/// A table with a block in the segment, as a partner makes it and the agent starts it.
struct Counters {
  Counters(const char* name, uint32_t entries, jx_rt_session_hdl* session) : size(entries) {
    uint32_t id = 0;
    table = tableOf(name, &id);
    block = CounterShm::segment->construct<unsigned char>(
        CounterShm::blockName(id).c_str())[sizeof(PartnerLib::CounterBlockHeader_t) +
                                           size * sizeof(PartnerCounterEntry)](
        static_cast<unsigned char>(0));
    PartnerLib::setCountersSync({kPhysical, JX_PIPE_ALL, 0, 0}, kCountersProgram, id, session, -1,
                                0, true);
    record = PartnerLib::countersCallbackMap.at(PartnerLib::counterKey(id));
  }

  const jx_rt_table_hdl* table;
  unsigned char* block;
  PartnerLib::CounterReadStruct_t* record;
  uint32_t size;
};

/// Both copy the same memory to the same place, in turn.
nlohmann::json readCosts(const Counters& counters) {
  constexpr int kTurns = 8;
  CounterHandleStruct handle = {};
  handle.block = counters.block;
  handle.counters = counters.block + sizeof(PartnerLib::CounterBlockHeader_t);
  const size_t bytes = counters.size * sizeof(PartnerCounterEntry);
  std::vector<unsigned char> out(bytes, 1);
  uint64_t time = 0;
  double read = 0;
  double copy = 0;
  PartnerCounterRead(&handle, 0, counters.size, out.data(), &time);  // the caches' first turn
  for (int i = 0; i < kTurns; ++i) {
    copy += costOf(counters.size, [&] { std::memcpy(out.data(), handle.counters, bytes); });
    read += costOf(counters.size,
                   [&] { PartnerCounterRead(&handle, 0, counters.size, out.data(), &time); });
  }
  return {{"read", read / kTurns}, {"memcpy", copy / kTurns}};
}

/// The calls that read all values of a table, and nothing else.
void bareCalls(const PartnerLib::CounterReadStruct_t& record, std::vector<uint64_t>* values) {
  jx_rt_table_key_hdl* key = nullptr;
  jx_rt_table_data_hdl* data = nullptr;
  check(jx_rt_table_key_allocate(record.table, &key), "key");
  check(jx_rt_table_data_allocate(record.table, &data), "data");
  for (uint32_t i = 0; i < record.size; ++i) {
    jx_rt_key_field_set_value(key, record.indexField, i);
    check(jx_rt_table_entry_get(record.table, record.session, &record.target, key, data, 0), "get");
    check(jx_rt_data_field_get_value(data, record.packetsField, &(*values)[2 * i]), "packets");
    check(jx_rt_data_field_get_value(data, record.bytesField, &(*values)[2 * i + 1]), "bytes");
  }
  check(jx_rt_table_key_deallocate(key), "key");
  check(jx_rt_table_data_deallocate(data), "data");
}

}  // namespace

void counterCosts() {
  using boost::interprocess::managed_shared_memory;
  bringUpSdk();
  const std::string file = writeProgram();
  Profile profile(file);
  check(jx_device_add(kPhysical, profile.get(), JX_DEV_TYPE_ANY), "physical device");
  const std::shared_ptr<jxrt::JxRtSession> session = jxrt::JxRtSession::sessionCreate();
  boost::interprocess::shared_memory_object::remove(CounterShm::kName);
  CounterShm::segment = new managed_shared_memory(boost::interprocess::open_or_create,
                                                  CounterShm::kName, CounterShm::kSize);
  const Counters small("small", kSmall, session->cHandle());
  const Counters large("large", kLarge, session->cHandle());
  std::vector<uint64_t> values(size_t{2} * kLarge);
  for (;;) {
    report({{"small", readCosts(small)},
            {"large", readCosts(large)},
            {"sync", costOf(kLarge, [&] { PartnerLib::processCounterRead(large.record); })},
            {"bare", costOf(kLarge, [&] { bareCalls(*large.record, &values); })}});
    awaitLine();
  }
}

}  // namespace bench
