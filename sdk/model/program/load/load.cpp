#include "model/program/load/load.h"

#include <unistd.h>

#include <cstring>
#include <optional>

#include "model/program/layout.h"
#include "model/program/p4info/p4info.h"
#include "model/program/source_file.h"
#include "model/program/v1model/v1model.h"

namespace jxmodel {
namespace {

constexpr const char* kP4InfoExtensions[] = {".p4info.txtpb", ".p4info.txt", ".p4info"};

enum class Form : uint8_t { kDescription, kCompiled, kP4Info };

struct Source {
  std::string path;
  std::string text;
  Form form = Form::kDescription;
};

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// A file that is named as JSON is read as such, so that its errors are those of JSON.
Form formOf(const Source& source) {
  const size_t first = source.text.find_first_not_of(" \t\r\n");
  const bool json = first == std::string::npos || source.text[first] == '{' ||
                    source.text[first] == '[' || endsWith(source.path, ".json");
  if (!json) return Form::kP4Info;
  return looksLikeV1model(source.text) ? Form::kCompiled : Form::kDescription;
}

bool readSource(const std::string& path, Source* source, LoadError* error) {
  source->path = path;
  if (const int failure = readSourceFile(path, kMaxV1modelBytes, &source->text); failure != 0) {
    fillError(error, path, "cannot be read", std::strerror(failure));
    return false;
  }
  source->form = formOf(*source);
  return true;
}

bool isThere(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

std::optional<std::string> p4InfoBeside(const std::string& json) {
  if (!endsWith(json, ".json")) return std::nullopt;
  const std::string stem = json.substr(0, json.size() - std::strlen(".json"));
  for (const char* const extension : kP4InfoExtensions) {
    if (isThere(stem + extension)) return stem + extension;
  }
  return std::nullopt;
}

// The two files of "JSON,P4INFO"; a file may have a comma in its name.
std::optional<std::pair<std::string, std::string>> pairIn(const std::string& spec) {
  const size_t comma = spec.rfind(',');
  if (comma == std::string::npos || isThere(spec)) return std::nullopt;
  return std::make_pair(spec.substr(0, comma), spec.substr(comma + 1));
}

std::shared_ptr<const Program> settled(UnpackedProgram* unpacked, const std::string& file,
                                       LoadError* error) {
  LoadError reason;
  if (layOut(unpacked, &reason))
    return std::make_shared<const Program>(std::move(unpacked->program));
  fillError(error, file, reason.place, reason.reason);
  return nullptr;
}

std::shared_ptr<const Program> loadCompiled(const Source& json, const Source* p4info,
                                            LoadError* error, std::vector<std::string>* notices) {
  UnpackedProgram unpacked;
  if (!programFromV1model(json.text, json.path, &unpacked, error, notices)) return nullptr;
  if (p4info != nullptr && !joinP4Info(p4info->text, p4info->path, &unpacked, error)) {
    return nullptr;
  }
  return settled(&unpacked, json.path, error);
}

std::shared_ptr<const Program> loadPair(const std::pair<std::string, std::string>& files,
                                        LoadError* error, std::vector<std::string>* notices) {
  Source json, p4info;
  if (!readSource(files.first, &json, error) || !readSource(files.second, &p4info, error)) {
    return nullptr;
  }
  if (json.form != Form::kCompiled) {
    fillError(error, json.path, "", "is not a compiler's JSON, which P4Info could belong to");
    return nullptr;
  }
  if (p4info.form != Form::kP4Info) {
    fillError(error, p4info.path, "", "is not P4Info text");
    return nullptr;
  }
  return loadCompiled(json, &p4info, error, notices);
}

std::shared_ptr<const Program> loadP4Info(const Source& source, LoadError* error) {
  if (endsWith(source.path, ".p4")) {
    fillError(error, source.path, "",
              "is P4 source, which the P4 compiler turns into the JSON to give here");
    return nullptr;
  }
  UnpackedProgram unpacked;
  if (!programFromP4Info(source.text, source.path, &unpacked, error)) return nullptr;
  return settled(&unpacked, source.path, error);
}

}  // namespace

std::shared_ptr<const Program> loadProgram(const std::string& spec, LoadError* error,
                                           std::vector<std::string>* notices) {
  if (const auto files = pairIn(spec)) return loadPair(*files, error, notices);
  Source source;
  if (!readSource(spec, &source, error)) return nullptr;
  if (source.form == Form::kP4Info) return loadP4Info(source, error);
  if (source.form == Form::kDescription) return parseProgramJson(source.text, source.path, error);
  const auto beside = p4InfoBeside(spec);
  if (!beside) return loadCompiled(source, nullptr, error, notices);
  Source p4info;
  if (!readSource(*beside, &p4info, error)) return nullptr;
  return loadCompiled(source, &p4info, error, notices);
}

}  // namespace jxmodel
