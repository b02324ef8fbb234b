// Why a command was not carried out. Handlers throw it; Shell::run turns it into the result line.
#pragma once

#include <stdexcept>
#include <string>

#include "jxsdk/types.h"
#include "table.h"

namespace jexapps {

class CommandError : public std::runtime_error {
 public:
  explicit CommandError(const std::string& reason, jx_status_t status = JX_SUCCESS)
      : std::runtime_error(reason), status_(status) {}

  /// The SDK's status, JX_SUCCESS if the SDK was not asked.
  jx_status_t status() const { return status_; }

 private:
  jx_status_t status_;
};

/// Throws unless an SDK call on behalf of `subject` (a table's name) has succeeded.
inline void check(jx_status_t status, const std::string& subject) {
  if (status != JX_SUCCESS) throw CommandError(subject + ": " + statusText(status), status);
}

}  // namespace jexapps
