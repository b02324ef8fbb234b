// Keeps devices in place while somebody who did not get them from the application looks at them.
//
// The application knows which devices it removes and when; the control server does not. It holds
// the gate shared for each short piece of work on a device, and looks the device up anew under it;
// jx_device_remove holds it exclusively while it takes the device away. The gate comes before every
// other lock of the model.
#pragma once

#include "model/base/mutex.h"

namespace jxmodel {

inline SharedMutex& deviceGate() {
  static auto* const gate = new SharedMutex;  // outlives every thread that uses it
  return *gate;
}

}  // namespace jxmodel
