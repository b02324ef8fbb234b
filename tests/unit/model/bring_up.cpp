// The order in which the SDK is brought up, from a fresh process on.
#include "jxsdk/drv.h"
#include "jxsdk/pipe_mgr.h"
#include "jxsdk/rt.hpp"
#include "unit/model/check.h"

int main() {
  const jx_device_profile_t profile{};
  uint32_t processed = 0;
  pipe_plcmt_info* const info = pipe_create_plcmt_info();
  CHECK_EQ(pipe_mgr_init(), JX_NOT_READY);
  CHECK_EQ(jx_rt_module_init(0, 0, nullptr, nullptr), JX_NOT_READY);
  CHECK_EQ(jx_device_add(1, &profile, JX_DEV_TYPE_ANY), JX_NOT_READY);
  CHECK_EQ(jx_device_remove(1), JX_NOT_READY);
  const auto session = jxrt::JxRtSession::sessionCreate();  // applications have one before all else
  CHECK_EQ(session == nullptr, false);

  CHECK_EQ(jx_drv_init(), JX_SUCCESS);
  CHECK_EQ(jx_rt_module_init(0, 0, nullptr, nullptr), JX_NOT_READY);
  CHECK_EQ(jx_device_add(1, &profile, JX_DEV_TYPE_ANY), JX_SUCCESS);
  CHECK_EQ(jx_virtual_device_add(2, &profile, JX_DEV_TYPE_ANY), JX_NOT_READY);
  CHECK_EQ(pipe_process_plcmt_info(session->sessHandleGet(), 1, 1, info, 0, &processed),
           JX_NOT_READY);

  CHECK_EQ(pipe_mgr_init(), JX_SUCCESS);
  CHECK_EQ(jx_virtual_device_add(2, &profile, JX_DEV_TYPE_ANY), JX_SUCCESS);
  const jxrt::JxRtInfo* program = nullptr;
  CHECK_EQ(jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(1, "none", &program), JX_NOT_READY);
  const char reserved = 0;
  CHECK_EQ(jx_rt_module_init(1, 0, nullptr, nullptr), JX_INVALID_ARGUMENTS);
  CHECK_EQ(jx_rt_module_init(0, 1, nullptr, nullptr), JX_INVALID_ARGUMENTS);
  CHECK_EQ(jx_rt_module_init(0, 0, &reserved, nullptr), JX_INVALID_ARGUMENTS);
  CHECK_EQ(jx_rt_module_init(0, 0, nullptr, &reserved), JX_INVALID_ARGUMENTS);
  CHECK_EQ(jx_rt_module_init(0, 0, nullptr, nullptr), JX_SUCCESS);
  CHECK_EQ(jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(1, "none", &program), JX_OBJECT_NOT_FOUND);

  CHECK_EQ(jx_drv_init(), JX_SUCCESS);
  CHECK_EQ(pipe_mgr_init(), JX_SUCCESS);
  CHECK_EQ(jx_rt_module_init(0, 0, nullptr, nullptr), JX_SUCCESS);
  pipe_destroy_plcmt_info(info);
  return EXIT_SUCCESS;
}
