#include "JexPartnerLibShared.h"

#include <chrono>

#include "JexPartnerLibMatchTypes.h"

namespace PartnerLib {

int myPid = -1;
PartnerSocket* pSocket = nullptr;
PartnerMessage* pMessage = nullptr;
bool moduleInitDone = false;

namespace {

constexpr const char* kStatusTexts[] = {
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
constexpr size_t kStatusCount = sizeof(kStatusTexts) / sizeof(kStatusTexts[0]);
static_assert(kStatusCount == JX_STATUS_COUNT);

}  // namespace

const char* statusText(jx_status_t status) {
  const auto index = static_cast<unsigned>(status);
  return index < kStatusCount ? kStatusTexts[index] : "Unknown error";
}

std::string jxStatusError(int status) {
  const char* text = nullptr;
  jx_rt_err_str(status, &text);
  return text;
}

uint64_t getEpochTime() {
  const std::chrono::nanoseconds now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint64_t>(static_cast<int64_t>(now.count()) / 1000000);
}

}  // namespace PartnerLib
