#include "configure.h"

#include <utility>
#include <vector>

#include "own_settings.h"
#include "setup_session.h"
#include "stf_commands.h"

namespace slice_agent {

struct SetupFile::Lines {
  std::vector<stf::Line> all;
};

SetupFile::SetupFile(const std::string& name) : name_(name) {
  try {
    lines_.reset(new Lines{stf::parseFile(name)});
  } catch (const stf::Error& error) {
    throw ConfigureError(error.what());
  }
}

SetupFile::~SetupFile() = default;
SetupFile::SetupFile(SetupFile&&) noexcept = default;

void SetupFile::apply(jx_dev_id_t device) const {
  try {
    stf::OwnSettings settings;
    stf::Target target;
    target.device = device;
    stf::SetupSession session(&settings, target, stf::SetupSession::Nodes::kAsCreated);
    stf::setUp(lines_->all, name_, &session);
  } catch (const stf::Error& error) {
    throw ConfigureError(error.what());
  }
}

}  // namespace slice_agent
