// Threads on one virtual device: writes are reported in the order in which they are stored.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "unit/model/random_writes.h"
#include "unit/model/twin.h"

namespace jxmodeltest {
namespace {

TEST(Concurrency, WritersOfOneDeviceKeepBothSidesEqual) {
  constexpr int kWriters = 4, kWrites = 3000;
  Twin twin({everyKind(), delivered("router")});
  std::atomic<int> writing{kWriters};
  std::vector<std::thread> threads;
  for (int i = 0; i < kWriters; ++i) {
    threads.emplace_back([&twin, &writing, i] {
      RandomWrites writes(twin.virt, 100 + i);
      for (int n = 0; n < kWrites; ++n) writes.write();
      --writing;
    });
  }
  // Readers of both devices meanwhile.
  for (const ModelDevice* device : {&twin.virt, &twin.physical}) {
    threads.emplace_back([device, &writing] {
      while (writing != 0) {
        for (const char* name : {"lpm", "groups", "acl"}) {
          const TableUser user(*device, name);
          uint64_t cursor = 0;
          std::vector<jxrt::JxRtTable::Entry> entries;
          EXPECT_EQ((*user).tableEntriesGet(device->session(), device->target(), 0, &cursor, 5000,
                                            &entries),
                    JX_SUCCESS);
          for (const auto& entry : entries) {
            EXPECT_NE(entry.handle, 0U);
            uint32_t priority = 0;
            EXPECT_EQ(entry.key->priorityGet(&priority), JX_SUCCESS);
          }
          user.usage();
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  // A report out of order would have been refused on the other side, or left a difference.
  EXPECT_EQ(twin.virt.dump(), twin.physical.dump());
  EXPECT_GT(twin.reported.size(), 1000U);
}

TEST(Concurrency, SessionsComeAndGoOnAllThreads) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int n = 0; n < 2000; ++n) {
        const auto session = jxrt::JxRtSession::sessionCreate();
        ASSERT_NE(session, nullptr);
        ASSERT_EQ(jxrt::JxRtSession::sessionInstantiate(session->sessHandleGet(), 0),
                  session->cHandle());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace jxmodeltest
