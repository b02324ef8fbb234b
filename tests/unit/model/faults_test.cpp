// Faults armed on SDK entries.
#include "jxmodel/faults.h"

#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <fstream>
#include <set>
#include <sstream>

#include "jxsdk/drv.h"
#include "unit/model/twin.h"

namespace jxmodeltest {
namespace {

class FaultsTest : public testing::Test {
 protected:
  void TearDown() override { jx_model_fault_clear(); }
};

TEST_F(FaultsTest, TheNthCallFailsAndNoOther) {
  ASSERT_EQ(jx_model_fault_arm("jx_drv_init", 2, JX_MODEL_FAULT_STATUS, JX_IO_ERROR), JX_SUCCESS);
  EXPECT_EQ(jx_drv_init(), JX_SUCCESS);
  EXPECT_EQ(jx_drv_init(), JX_IO_ERROR);
  EXPECT_EQ(jx_drv_init(), JX_SUCCESS);
  EXPECT_EQ(jx_model_fault_calls("jx_drv_init"), 3U);
  jx_model_fault_clear();
  EXPECT_EQ(jx_model_fault_calls("jx_drv_init"), 0U);
}

TEST_F(FaultsTest, EveryCallFails) {
  ASSERT_EQ(jx_model_fault_arm("pipe_mgr_init", 0, JX_MODEL_FAULT_STATUS, JX_NOT_READY),
            JX_SUCCESS);
  EXPECT_EQ(pipe_mgr_init(), JX_NOT_READY);
  EXPECT_EQ(pipe_mgr_init(), JX_NOT_READY);
}

TEST_F(FaultsTest, ArmingChecksEntryAndEffect) {
  EXPECT_EQ(jx_model_fault_arm("jx_nothing", 1, JX_MODEL_FAULT_STATUS, 1), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(jx_model_fault_arm("jx_drv_init", 1, JX_MODEL_FAULT_NULL, 0), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(jx_model_fault_arm("jx_drv_init", 1, JX_MODEL_FAULT_COUNT, 0), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(jx_model_fault_arm("jx_rt_err_str", 1, JX_MODEL_FAULT_STATUS, 1), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(jx_model_fault_arm(nullptr, 1, JX_MODEL_FAULT_STATUS, 1), JX_INVALID_ARGUMENTS);
}

TEST_F(FaultsTest, PointersAreHandedOutAsNull) {
  const ModelDevice device(20, ModelDevice::Kind::kVirtual, {everyKind()});
  for (const char* entry :
       {"pipe_create_plcmt_info", "jx_rt_err_str", "jx_rt_info_get", "JxRtDevMgr::jxRtInfoGet",
        "JxRtSession::sessionCreate", "JxRtInfo::tableFromNameGet", "JxRtTable::keyAllocate"}) {
    ASSERT_EQ(jx_model_fault_arm(entry, 1, JX_MODEL_FAULT_NULL, 0), JX_SUCCESS) << entry;
  }
  EXPECT_EQ(pipe_create_plcmt_info(), nullptr);
  const char* text = "";
  jx_rt_err_str(JX_SUCCESS, &text);
  EXPECT_EQ(text, nullptr);
  const auto* c_info = reinterpret_cast<const jx_rt_info_hdl*>(&device);
  EXPECT_EQ(jx_rt_info_get(20, "every_kind", &c_info), JX_SUCCESS);
  EXPECT_EQ(c_info, nullptr);
  const jxrt::JxRtInfo* info = nullptr;
  const auto& manager = jxrt::JxRtDevMgr::getInstance();
  EXPECT_EQ(manager.jxRtInfoGet(20, "every_kind", &info), JX_SUCCESS);
  EXPECT_EQ(info, nullptr);
  EXPECT_EQ(jxrt::JxRtSession::sessionCreate(), nullptr);
  ASSERT_EQ(manager.jxRtInfoGet(20, "every_kind", &info), JX_SUCCESS);
  const jxrt::JxRtTable* table = &device.table("exact");
  EXPECT_EQ(info->tableFromNameGet("exact", &table), JX_SUCCESS);
  EXPECT_EQ(table, nullptr);
  const auto key = TableUser(device, "exact").key();
  EXPECT_EQ(key, nullptr);
}

TEST_F(FaultsTest, AProcessedCountIsReportedWhileTheWorkIsDone) {
  const ModelDevice device(20, ModelDevice::Kind::kPhysical, {everyKind()});
  ASSERT_EQ(jx_model_fault_arm("pipe_process_plcmt_info", 1, JX_MODEL_FAULT_COUNT, 2), JX_SUCCESS);
  pipe_tbl_hdl_t groups = 0, members = 0;
  device.table("groups").tableHandleGet(&groups);
  device.table("members").tableHandleGet(&members);
  pipe_plcmt_info* const info = pipe_create_plcmt_info();
  ASSERT_EQ(pipe_set_one_plcmt_op_sel_grp_create(info, 3, 0, 0, 9, members, 0, nullptr),
            JX_SUCCESS);
  uint32_t processed = 0;
  EXPECT_EQ(
      pipe_process_plcmt_info(device.session().sessHandleGet(), 20, groups, info, 0, &processed),
      JX_SUCCESS);
  EXPECT_EQ(processed, 2U);
  EXPECT_EQ(TableUser(device, "groups").usage(), 1U);
  pipe_destroy_plcmt_info(info);
}

TEST_F(FaultsTest, ADelayedCallComesLateButWorks) {
  ASSERT_EQ(jx_model_fault_arm("jx_drv_init", 1, JX_MODEL_FAULT_DELAY, 30), JX_SUCCESS);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(jx_drv_init(), JX_SUCCESS);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
}

TEST_F(FaultsTest, AFailedWriteLeavesTheTableAlone) {
  Twin twin({everyKind()});
  const TableUser exact(twin.virt, "exact");
  ASSERT_EQ(jx_model_fault_arm("JxRtTable::tableEntryAdd", 1, JX_MODEL_FAULT_STATUS, JX_TRY_AGAIN),
            JX_SUCCESS);
  EXPECT_EQ(exact.add(exact.key(1), exact.data("nop", {})), JX_TRY_AGAIN);
  EXPECT_EQ(exact.usage(), 0U);
  EXPECT_TRUE(twin.reported.empty());
  EXPECT_EQ(exact.add(exact.key(1), exact.data("nop", {})), JX_SUCCESS);
}

/// A header of the SDK without its comments.
std::string header(const std::string& name) {
  std::ifstream file(JEX_SDK_INCLUDE_DIR "/jxsdk/" + name);
  std::stringstream read;
  read << file.rdbuf();
  std::string text = read.str();
  for (size_t begin; (begin = text.find("//")) != std::string::npos;) {
    text.erase(begin, text.find('\n', begin) - begin);
  }
  for (size_t begin; (begin = text.find("/*")) != std::string::npos;) {
    text.erase(begin, text.find("*/", begin) + 2 - begin);
  }
  return text;
}

/// The word that stands before the first parenthesis from `begin` on.
std::string nameOfCall(const std::string& text, size_t begin) {
  const size_t end = text.find('(', begin);
  size_t first = end;
  while (first > begin && (std::isalnum(text[first - 1]) != 0 || text[first - 1] == '_')) --first;
  return text.substr(first, end - first);
}

/// Names that the SDK's headers declare: functions, and methods by class and name.
std::set<std::string> declared() {
  const std::string mark = "JXSDK_API ";
  std::set<std::string> names;
  for (const char* file : {"drv.h", "pipe_mgr.h", "rt.h"}) {
    const std::string text = header(file);
    for (size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += mark.size()) {
      names.insert(nameOfCall(text, at));
    }
  }
  std::istringstream lines(header("rt.hpp"));
  std::string line, owner;
  while (std::getline(lines, line)) {
    const std::string begins_class = "class " + mark;
    if (line.rfind(begins_class, 0) == 0) {
      owner = line.substr(begins_class.size(),
                          line.find(' ', begins_class.size()) - begins_class.size());
    }
    const bool method = line.rfind("  virtual ", 0) == 0 || line.rfind("  static ", 0) == 0;
    if (method && line.find('~') == std::string::npos) {
      names.insert(owner + "::" + nameOfCall(line, 0));
    }
  }
  return names;
}

TEST_F(FaultsTest, EveryEntryOfTheSdkCanHaveOne) {
  std::set<std::string> listed;
  for (const char* const* name = jx_model_fault_entries(); *name != nullptr; ++name) {
    EXPECT_TRUE(listed.insert(*name).second) << *name;
    EXPECT_EQ(jx_model_fault_arm(*name, 1, JX_MODEL_FAULT_DELAY, 0), JX_SUCCESS);
  }
  EXPECT_GT(listed.size(), 150U);
  EXPECT_EQ(listed, declared());
}

}  // namespace
}  // namespace jxmodeltest
