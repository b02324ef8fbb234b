// The settings of a device of this very process, without a server.
#pragma once

#include "setup_session.h"

namespace stf {

class OwnSettings final : public Service {
 public:
  void call(const char* method, const google::protobuf::MessageLite& request,
            google::protobuf::MessageLite* reply) override;
};

}  // namespace stf
