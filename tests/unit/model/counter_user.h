// A counter table of a device as a program in C uses it.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "jxsdk/rt.h"
#include "unit/model/model_device.h"

namespace jxmodeltest {

/// The device of tests of counters.
constexpr jx_dev_id_t kCounted = 20;

/// A program of counter tables alone, "counters_0" for a table of size 0 and so on.
std::shared_ptr<const jxmodel::Program> countersOf(const std::vector<uint32_t>& sizes);

/// What a read found: packets and bytes.
using Pair = std::pair<uint64_t, uint64_t>;

/// Completions of syncs, in their order.
class Completions {
 public:
  struct Cookie {
    Completions* completions;
    int number;
  };
  /// The cookie of a sync, to tell completions apart. Valid as long as this object.
  Cookie* cookie(int number);
  static void completed(jx_rt_target_t* target, void* cookie);

  /// Waits until this many have come.
  void wait(size_t count);
  std::vector<int> order() const;
  std::vector<std::thread::id> threads() const;
  std::vector<jx_dev_id_t> devices() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::unique_ptr<Cookie>> cookies_;
  std::vector<int> order_;
  std::vector<std::thread::id> threads_;
  std::vector<jx_dev_id_t> devices_;
};

class CounterUser {
 public:
  CounterUser(const ModelDevice& device, const std::string& name);
  ~CounterUser();
  CounterUser(const CounterUser&) = delete;
  CounterUser& operator=(const CounterUser&) = delete;

  const jx_rt_table_hdl* table() const { return table_; }
  const jx_rt_session_hdl* session() const { return session_; }
  jx_rt_target_t target() const { return target_; }
  jx_rt_table_key_hdl* key() const { return key_; }
  jx_rt_table_data_hdl* data() const { return data_; }

  jx_status_t setIndex(uint64_t index) const;
  /// Reads into data().
  jx_status_t read(uint64_t index, uint64_t flags = 0) const;
  /// What data() holds.
  Pair values() const;
  /// From the software copy; the read has to succeed.
  Pair at(uint64_t index) const;
  Pair hardwareAt(uint64_t index) const;

  /// Executes a sync; the operation is deallocated at once.
  jx_status_t sync(jx_rt_counter_sync_cb callback, void* cookie) const;
  /// Executes a sync and waits until it has completed.
  void syncAndWait() const;

 private:
  const jx_rt_table_hdl* table_;
  const jx_rt_session_hdl* session_;
  jx_rt_target_t target_;
  uint32_t index_field_ = 0, packets_field_ = 0, bytes_field_ = 0;
  jx_rt_table_key_hdl* key_ = nullptr;
  jx_rt_table_data_hdl* data_ = nullptr;
};

}  // namespace jxmodeltest
