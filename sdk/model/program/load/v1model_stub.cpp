// Stands for the compiler's front-end until that is there.
#include "model/program/source_file.h"
#include "model/program/v1model/v1model.h"

namespace jxmodel {

bool looksLikeV1model(std::string_view text) {
  return text.find("\"__meta__\"") != std::string_view::npos &&
         text.find("\"pipelines\"") != std::string_view::npos;
}

bool programFromV1model(std::string_view, const std::string& file, UnpackedProgram*,
                        LoadError* error, std::vector<std::string>*) {
  fillError(error, file, "", "the compiler's JSON cannot be read yet");
  return false;
}

}  // namespace jxmodel
