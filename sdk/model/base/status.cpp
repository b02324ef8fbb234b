// The texts of statuses.
#include "jxsdk/rt.h"
#include "model/base/faults.h"

namespace {

constexpr const char* kTexts[] = {
    "Success",
    "Not ready",
    "No system resources",
    "Invalid arguments",
    "Already exists",
    "HW access fails",
    "Object not found",
    "Max sessions exceeded",
    "Session not found",
    "Not enough space",
    "Resource temporarily not available, try again later",
    "Initialization error",
    "Not supported in transaction",
    "Resource held by another session",
    "IO error",
    "Unexpected error",
    "Action data entry is being referenced by match entries",
    "Operation not supported",
    "Updating hardware failed",
    "No learning clients registered",
    "Idle time update state already in progress",
    "Device locked",
    "Internal error",
    "Table not found",
    "In use",
    "Object not implemented",
    "Hardware entry not found",
};
static_assert(sizeof kTexts / sizeof kTexts[0] == JX_STATUS_COUNT);

}  // namespace

void jx_rt_err_str(jx_status_t status, const char** text) {
  if (text == nullptr) return;
  if (jxmodel::fault::check("jx_rt_err_str").isNull()) {
    *text = nullptr;
    return;
  }
  *text = status >= 0 && status < JX_STATUS_COUNT ? kTexts[status] : "Unknown error";
}
