// Run with JX_MODEL_FAULTS=jx_drv_init:2:status=12;JxRtSession::sessionCreate:1:null
#include "jxmodel/faults.h"
#include "jxsdk/drv.h"
#include "jxsdk/rt.hpp"
#include "unit/model/check.h"

int main() {
  CHECK_EQ(jx_drv_init(), JX_SUCCESS);
  CHECK_EQ(jx_drv_init(), JX_NOT_SUPPORTED_IN_TRANSACTION);
  CHECK_EQ(jx_drv_init(), JX_SUCCESS);
  CHECK_EQ(jx_model_fault_calls("jx_drv_init"), 3u);
  CHECK_EQ(jxrt::JxRtSession::sessionCreate() == nullptr, true);
  CHECK_EQ(jxrt::JxRtSession::sessionCreate() == nullptr, false);
  return EXIT_SUCCESS;
}
