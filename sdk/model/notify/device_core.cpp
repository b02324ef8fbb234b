#include "model/notify/device_core.h"

namespace jxmodel {

DeviceCore::DeviceCore(jx_dev_id_t id, Kind kind)
    : id_(id),
      kind_(kind),
      reclaimer_(kind == Kind::kPhysical ? std::make_unique<Reclaimer>() : nullptr),
      dispatch_(kind == Kind::kPhysical ? std::make_unique<DispatchThread>() : nullptr) {}

}  // namespace jxmodel
