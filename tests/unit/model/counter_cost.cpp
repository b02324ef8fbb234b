// What it costs to sync a million counters and to read them one by one, as an agent does after each
// sync: CPU time of the thread that does it; run by hand.
#include <time.h>

#include <cstdio>
#include <vector>

#include "model/tables/counter_table.h"
#include "unit/model/counter_user.h"

namespace {

constexpr uint32_t kSize = 1'000'000;
constexpr int kRounds = 5;

double cpuNanoseconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

/// Reads all entries: key, entry, packets, bytes.
uint64_t readAll(const jxmodeltest::CounterUser& user, uint32_t index, uint32_t packets,
                 uint32_t bytes) {
  const jx_rt_target_t target = user.target();
  uint64_t pair[2], failed = 0;
  for (uint32_t i = 0; i < kSize; ++i) {
    (void)jx_rt_key_field_set_value(user.key(), index, i);
    failed += jx_rt_table_entry_get(user.table(), user.session(), &target, user.key(), user.data(),
                                    0) != JX_SUCCESS;
    failed += jx_rt_data_field_get_value(user.data(), packets, &pair[0]) != JX_SUCCESS;
    failed += jx_rt_data_field_get_value(user.data(), bytes, &pair[1]) != JX_SUCCESS;
    failed += pair[0] != i + 1;
  }
  return failed;
}

}  // namespace

int main() {
  using jxmodeltest::ModelDevice;
  jxmodeltest::bringSdkUp();
  const ModelDevice device(1, ModelDevice::Kind::kPhysical, {jxmodeltest::countersOf({kSize})});
  const jxmodeltest::CounterUser user(device, "counters_1000000");
  jxmodel::CounterTable& hardware = *device.state("counters_1000000").counters;
  for (uint32_t i = 0; i < kSize; ++i) hardware.exchange(i, {i + 1, i});
  uint32_t index = 0, packets = 0, bytes = 0;
  jx_rt_key_field_id_get(user.table(), "$COUNTER_INDEX", &index);
  jx_rt_data_field_id_get(user.table(), "$COUNTER_SPEC_PKTS", &packets);
  jx_rt_data_field_id_get(user.table(), "$COUNTER_SPEC_BYTES", &bytes);
  for (int round = 0; round < kRounds; ++round) {
    const double begin = cpuNanoseconds();
    hardware.sync();  // what the dispatch thread does
    const double synced = cpuNanoseconds();
    const uint64_t failed = readAll(user, index, packets, bytes);
    const double read = cpuNanoseconds();
    std::printf("sync %.2f ms, read %.1f ns an entry\n", (synced - begin) / 1e6,
                (read - synced) / kSize);
    if (failed != 0) return 1;
  }
  return 0;
}
