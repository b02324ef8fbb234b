#include "unit/notify/notify_device.h"

#include <chrono>
#include <fstream>

namespace jxnotifytest {
namespace {

void append(Bytes* bytes, uint64_t value, size_t size) {
  for (size_t i = size; i-- > 0;) bytes->push_back(static_cast<uint8_t>(value >> (8 * i)));
}

}  // namespace

Bytes frame(uint64_t source, uint64_t destination) {
  Bytes bytes;
  append(&bytes, destination, 6);
  append(&bytes, source, 6);
  append(&bytes, 0x88B5, 2);
  bytes.resize(60);
  return bytes;
}

Bytes digest(uint64_t source, uint16_t port) {
  Bytes bytes;
  append(&bytes, source, 6);
  append(&bytes, port, 2);
  return bytes;
}

Learner::Learner(jxrt::JxRtLearn* learn, bool acknowledges)
    : learn_(learn), acknowledges_(acknowledges), session_(jxrt::JxRtSession::sessionCreate()) {
  EXPECT_EQ(learn->learnFieldIdListGet(&fields_), JX_SUCCESS);
  for (const uint32_t id : fields_) {
    size_t bits = 0;
    EXPECT_EQ(learn->learnFieldSizeGet(id, &bits), JX_SUCCESS);
    bytes_.push_back((bits + 7) / 8);
  }
}

Learner::~Learner() {
  if (learn_ != nullptr) end();
}

jx_status_t Learner::begin() {
  return learn_->callbackRegister(session_, {kDevice, JX_PIPE_ALL, 0, 0}, callback(), this);
}

jx_status_t Learner::end() const {
  return learn_->callbackDeregister(session_, {kDevice, JX_PIPE_ALL, 0, 0});
}

jx_status_t Learner::acknowledge(size_t message) {
  jx_rt_learn_msg_hdl* handle = nullptr;
  {
    const std::lock_guard lock(mutex_);
    handle = handles_.at(message);
  }
  return learn_->notifyAck(session_, handle);
}

jxrt::JxRtLearnCb Learner::callback() {
  return [this](const jx_rt_target_t& target, std::shared_ptr<jxrt::JxRtSession> session,
                std::vector<std::unique_ptr<jxrt::JxRtTableData>> data,
                jx_rt_learn_msg_hdl* const message, const void* cookie) {
    EXPECT_EQ(target.dev_id, kDevice);
    EXPECT_EQ(session, session_);
    EXPECT_EQ(cookie, this);
    std::vector<Bytes> read;
    for (const auto& entry : data) {
      Bytes& values = read.emplace_back();
      for (size_t i = 0; i < fields_.size(); ++i) {
        Bytes value(bytes_[i]);
        EXPECT_EQ(entry->getValue(fields_[i], bytes_[i], value.data()), JX_SUCCESS);
        values.insert(values.end(), value.begin(), value.end());
      }
    }
    if (acknowledges_) {
      EXPECT_EQ(learn_->notifyAck(session, message), JX_SUCCESS);
    }
    const std::lock_guard lock(mutex_);
    digests_.insert(digests_.end(), read.begin(), read.end());
    sizes_.push_back(data.size());
    handles_.push_back(message);
    changed_.notify_all();
    return JX_SUCCESS;
  };
}

std::vector<Bytes> Learner::digests() const {
  const std::lock_guard lock(mutex_);
  return digests_;
}

std::vector<size_t> Learner::sizes() const {
  const std::lock_guard lock(mutex_);
  return sizes_;
}

bool Learner::wait(size_t digests) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, std::chrono::milliseconds(kPatienceMs),
                           [&] { return digests_.size() >= digests; });
}

void NotifyTest::SetUp() {
  ASSERT_EQ(jx_drv_init(), JX_SUCCESS);
  ASSERT_EQ(pipe_mgr_init(), JX_SUCCESS);
  ASSERT_EQ(jx_rt_module_init(0, 0, nullptr, nullptr), JX_SUCCESS);
  ASSERT_EQ(jx_model_clock_set(JX_MODEL_CLOCK_STOPPED, kStart), JX_SUCCESS);
  const char* const file = JEX_PROGRAMS_DIR "/l2_switch.json";
  const jx_device_profile_t profile{1, &file, 0};
  ASSERT_EQ(jx_device_add(kDevice, &profile, JX_DEV_TYPE_ANY), JX_SUCCESS);
}

void NotifyTest::load(const std::string& json) {
  const std::string path = folder_ / "program.json";
  std::ofstream(path) << json;
  const char* const file = path.c_str();
  const jx_device_profile_t profile{1, &file, 0};
  ASSERT_EQ(jx_device_remove(kDevice), JX_SUCCESS);
  ASSERT_EQ(jx_device_add(kDevice, &profile, JX_DEV_TYPE_ANY), JX_SUCCESS);
}

void NotifyTest::TearDown() {
  jx_device_remove(kDevice);
  jx_model_clock_set(JX_MODEL_CLOCK_REAL, 0);
}

const jxrt::JxRtInfo* NotifyTest::info() const {
  const jxrt::JxRtInfo* info = nullptr;
  EXPECT_EQ(jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(kDevice, program_, &info), JX_SUCCESS);
  return info;
}

jxrt::JxRtLearn* NotifyTest::learn(const std::string& name) const {
  jxrt::JxRtLearn* learn = nullptr;
  EXPECT_EQ(info()->learnFromNameGet(name, &learn), JX_SUCCESS);
  return learn;
}

void NotifyTest::setOptions(jx_model_learn_options_t options) {
  ASSERT_EQ(jx_model_learn_options_set(kDevice, "l2_switch", "mac_learn", &options), JX_SUCCESS);
}

jx_model_learn_counts_t NotifyTest::counts() {
  jx_model_learn_counts_t counts{};
  EXPECT_EQ(jx_model_learn_counts_get(kDevice, "l2_switch", "mac_learn", &counts), JX_SUCCESS);
  return counts;
}

void NotifyTest::attach(uint32_t port, const std::vector<jxmodel::PacketBuffer>& packets) {
  const std::string path = folder_ / ("in" + std::to_string(port));
  jxmodel::test::writeCapture(path, packets);
  const std::string spec = std::to_string(port) + "=pcap:" + path;
  char error[256] = "";
  ASSERT_EQ(jx_model_port_add(kDevice, spec.c_str(), error, sizeof error), JX_SUCCESS) << error;
}

}  // namespace jxnotifytest
