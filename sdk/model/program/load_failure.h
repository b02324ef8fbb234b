// How the parts of the loaders report what is wrong: by exception, so that they can return what
// they read and nest as the description does. None leaves a loader, which turns it into a
// LoadError.
#pragma once

#include <string>

namespace jxmodel {

struct LoadFailure {
  std::string place, reason;
};

}  // namespace jxmodel
