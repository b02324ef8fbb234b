// A physical device of switchctl's own, for packet tests.
#pragma once

#include <string>

namespace switchctl {

/// Has device 0 of the process, with one program, for as long as it lives. Its clock stands still
/// but for `wait`. Takes no name that another process could have.
class OwnDevice {
 public:
  /// Throws stf::Error; why a program cannot be loaded, the model has written to standard error.
  explicit OwnDevice(const std::string& program_file);
  ~OwnDevice();
  OwnDevice(const OwnDevice&) = delete;
  OwnDevice& operator=(const OwnDevice&) = delete;

  /// Lets one second pass.
  static void wait();
};

}  // namespace switchctl
