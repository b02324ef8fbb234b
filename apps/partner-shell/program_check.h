#pragma once

#include <string>
#include <vector>

namespace jexapps {

/// Whether a device can be made of these program descriptions. The library stops the process over
/// one that it cannot load; asking first turns that into an error of the command line. The reason
/// is on standard error. Has to be called while the process has one thread.
bool programsAreLoadable(const std::vector<std::string>& program_files);

}  // namespace jexapps
