#include "own_settings.h"

#include <google/protobuf/message_lite.h>

#include "jxmodel/control.h"

namespace stf {
namespace {

struct Answer {
  google::protobuf::MessageLite* reply;
  int code = 0;
  std::string message;
};

void take(void* cookie, int code, const char* message, const uint8_t* reply, size_t bytes) {
  Answer& answer = *static_cast<Answer*>(cookie);
  answer.code = code;
  answer.message = message;
  if (code == 0) answer.reply->ParseFromArray(reply, static_cast<int>(bytes));
}

}  // namespace

void OwnSettings::call(const char* method, const google::protobuf::MessageLite& request,
                       google::protobuf::MessageLite* reply) {
  const std::string bytes = request.SerializeAsString();
  Answer answer{reply, 0, {}};
  jx_model_settings_call(method, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), take,
                         &answer);
  if (answer.code != 0) throw Error(answer.message);
}

}  // namespace stf
