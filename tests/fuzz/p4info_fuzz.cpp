// P4Info text of any bytes: a program or an error, never anything else.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "model/program/p4info/p4info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  jxmodel::UnpackedProgram unpacked;
  jxmodel::LoadError error;
  const bool read = jxmodel::programFromP4Info(text, "fuzzed.p4info.txtpb", &unpacked, &error) &&
                    jxmodel::layOut(&unpacked, &error);
  if (!read && error.reason.empty()) std::abort();
  return 0;
}
