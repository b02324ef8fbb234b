// A shell on a virtual device whose updates nobody takes, with l2_switch and router on it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "fake_partner.h"
#include "jxsdk/drv.h"
#include "jxsdk/pipe_mgr.h"
#include "shell.h"

namespace jexapps {

class ShellOnDevice : public testing::Test {
 protected:
  static constexpr jx_dev_id_t kDevice = 1;
  static constexpr jx_rt_target_t kTarget{kDevice, JX_PIPE_ALL, 0, 0};

  void SetUp() override {
    ASSERT_EQ(jx_drv_init(), JX_SUCCESS);
    ASSERT_EQ(pipe_mgr_init(), PIPE_SUCCESS);
    ASSERT_EQ(jx_rt_module_init(0, 0, nullptr, nullptr), JX_SUCCESS);
    const std::vector<std::string> paths = programFiles();
    std::vector<const char*> programs;
    for (const std::string& path : paths) programs.push_back(path.c_str());
    jx_device_profile_t profile{};
    profile.num_programs = static_cast<uint32_t>(programs.size());
    profile.program_files = programs.data();
    profile.handle_base = 1000;
    ASSERT_EQ(jx_virtual_device_add(kDevice, &profile, JX_DEV_TYPE_MODEL), JX_SUCCESS);
    session_ = jxrt::JxRtSession::sessionCreate();
    ASSERT_TRUE(session_);
    useFormat(/*json=*/false);
  }

  void TearDown() override {
    sut_.reset();
    EXPECT_EQ(jx_device_remove(kDevice), JX_SUCCESS);
  }

  /// Paths of the programs on the device.
  virtual std::vector<std::string> programFiles() {
    return {JEX_PROGRAMS_DIR "/l2_switch.json", JEX_PROGRAMS_DIR "/router.json"};
  }

  /// Starts anew, as a shell that prints this.
  void useFormat(bool json, size_t columns = 0) {
    DeviceFacts facts;
    ASSERT_EQ(readTableFacts(kDevice, &facts.tables), JX_SUCCESS);
    ASSERT_EQ(readDigestFacts(kDevice, &facts.digests), JX_SUCCESS);
    output_ = std::make_unique<Output>(stream_, json, columns);
    sut_ = std::make_unique<Shell>(*session_, kTarget, std::move(facts), partner_, *output_,
                                   [this] { return stop_; });
  }

  /// What the shell writes for a line, without the last end of line.
  std::string answer(const std::string& line) {
    stream_.str("");
    sut_->run(line);
    std::string text = stream_.str();
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
  }

  void given(std::initializer_list<const char*> lines) {
    for (const char* line : lines) {
      ASSERT_EQ(answer(line).substr(0, 2), "ok") << line << ": " << stream_.str();
    }
  }

  std::shared_ptr<jxrt::JxRtSession> session_;
  std::ostringstream stream_;
  FakePartner partner_;
  std::unique_ptr<Output> output_;
  std::unique_ptr<Shell> sut_;
  bool stop_ = false;
};

}  // namespace jexapps
