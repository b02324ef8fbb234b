#include "unit/model/counter_user.h"

#include "model/runtime/session.h"

namespace jxmodeltest {

std::shared_ptr<const jxmodel::Program> countersOf(const std::vector<uint32_t>& sizes) {
  std::string tables;
  for (const uint32_t size : sizes) {
    const std::string number = std::to_string(size);
    tables += (tables.empty() ? "" : ", ") + (R"({"name": "counters_)" + number) +
              R"(", "kind": "counter", "size": )" + number + "}";
  }
  jxmodel::LoadError error;
  auto program = jxmodel::parseProgramJson(
      R"({"name": "counting", "id": 78, "fields": [], "actions": [], "control": [], "tables": [)" +
          tables + "]}",
      "counting", &error);
  EXPECT_NE(program, nullptr) << error.text();
  return program;
}

Completions::Cookie* Completions::cookie(int number) {
  const std::lock_guard lock(mutex_);
  cookies_.push_back(std::make_unique<Cookie>(Cookie{this, number}));
  return cookies_.back().get();
}

void Completions::completed(jx_rt_target_t* target, void* cookie) {
  const auto* const mine = static_cast<const Cookie*>(cookie);
  Completions& self = *mine->completions;
  const std::lock_guard lock(self.mutex_);
  self.order_.push_back(mine->number);
  self.threads_.push_back(std::this_thread::get_id());
  self.devices_.push_back(target->dev_id);
  self.changed_.notify_all();
}

void Completions::wait(size_t count) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return order_.size() >= count; });
}

std::vector<int> Completions::order() const {
  const std::lock_guard lock(mutex_);
  return order_;
}

std::vector<std::thread::id> Completions::threads() const {
  const std::lock_guard lock(mutex_);
  return threads_;
}

std::vector<jx_dev_id_t> Completions::devices() const {
  const std::lock_guard lock(mutex_);
  return devices_;
}

CounterUser::CounterUser(const ModelDevice& device, const std::string& name)
    : table_(reinterpret_cast<const jx_rt_table_hdl*>(&device.table(name))),
      session_(jxmodel::toHandle(&device.session())),
      target_(device.target()) {
  EXPECT_EQ(jx_rt_key_field_id_get(table_, "$COUNTER_INDEX", &index_field_), JX_SUCCESS);
  EXPECT_EQ(jx_rt_data_field_id_get(table_, "$COUNTER_SPEC_PKTS", &packets_field_), JX_SUCCESS);
  EXPECT_EQ(jx_rt_data_field_id_get(table_, "$COUNTER_SPEC_BYTES", &bytes_field_), JX_SUCCESS);
  EXPECT_EQ(jx_rt_table_key_allocate(table_, &key_), JX_SUCCESS);
  EXPECT_EQ(jx_rt_table_data_allocate(table_, &data_), JX_SUCCESS);
}

CounterUser::~CounterUser() {
  EXPECT_EQ(jx_rt_table_key_deallocate(key_), JX_SUCCESS);
  EXPECT_EQ(jx_rt_table_data_deallocate(data_), JX_SUCCESS);
}

jx_status_t CounterUser::setIndex(uint64_t index) const {
  return jx_rt_key_field_set_value(key_, index_field_, index);
}

jx_status_t CounterUser::read(uint64_t index, uint64_t flags) const {
  const jx_status_t status = setIndex(index);
  if (status != JX_SUCCESS) return status;
  return jx_rt_table_entry_get(table_, session_, &target_, key_, data_, flags);
}

Pair CounterUser::values() const {
  Pair pair;
  EXPECT_EQ(jx_rt_data_field_get_value(data_, packets_field_, &pair.first), JX_SUCCESS);
  EXPECT_EQ(jx_rt_data_field_get_value(data_, bytes_field_, &pair.second), JX_SUCCESS);
  return pair;
}

Pair CounterUser::at(uint64_t index) const {
  EXPECT_EQ(read(index), JX_SUCCESS) << index;
  return values();
}

Pair CounterUser::hardwareAt(uint64_t index) const {
  EXPECT_EQ(read(index, JX_RT_FLAG_FROM_HARDWARE), JX_SUCCESS) << index;
  return values();
}

jx_status_t CounterUser::sync(jx_rt_counter_sync_cb callback, void* cookie) const {
  jx_rt_table_operations_hdl* operations = nullptr;
  jx_status_t status =
      jx_rt_table_operations_allocate(table_, JX_RT_OPERATION_COUNTER_SYNC, &operations);
  if (status != JX_SUCCESS) return status;
  status = jx_rt_operations_counter_sync_set(operations, session_, &target_, callback, cookie);
  if (status == JX_SUCCESS) status = jx_rt_table_operations_execute(table_, operations);
  EXPECT_EQ(jx_rt_table_operations_deallocate(operations), JX_SUCCESS);
  return status;
}

void CounterUser::syncAndWait() const {
  Completions completions;
  ASSERT_EQ(sync(Completions::completed, completions.cookie(0)), JX_SUCCESS);
  completions.wait(1);
}

}  // namespace jxmodeltest
