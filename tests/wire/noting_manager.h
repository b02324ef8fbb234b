// A manager in front of the SDK's that notes which programs it is asked for.
#pragma once

#include <memory>
#include <string>

#include "wire/noted_calls.h"
#include "wire/sdk_front.h"

namespace jextest {

/// `Info` stands in front of the programs: it is made from the SDK's.
template <typename Info>
class NotingManager final : public ForwardingManager {
 public:
  jx_status_t jxRtInfoGet(jx_dev_id_t dev_id, const std::string& p4_name,
                          const jxrt::JxRtInfo** info) const override {
    note("program " + p4_name + " of " + std::to_string(dev_id));
    return ForwardingManager::jxRtInfoGet(dev_id, p4_name, info);
  }

 private:
  std::unique_ptr<jxrt::JxRtInfo> inFrontOf(const jxrt::JxRtInfo& info) const override {
    return std::make_unique<Info>(info);
  }
};

}  // namespace jextest
