// The set-up file of a start.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "jxsdk/types.h"

namespace slice_agent {

/// A set-up file that cannot be carried out: a line with file, line, value and reason.
class ConfigureError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A set-up file that has been read. Commands are those of packet tests that set something up.
class SetupFile {
 public:
  /// Throws ConfigureError.
  explicit SetupFile(const std::string& name);
  ~SetupFile();
  SetupFile(SetupFile&&) noexcept;

  /// Carries out its lines on the device, which has its programs. Throws ConfigureError.
  void apply(jx_dev_id_t device) const;

 private:
  struct Lines;
  std::string name_;
  std::unique_ptr<const Lines> lines_;
};

}  // namespace slice_agent
