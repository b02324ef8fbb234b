#include "model/program/source_file.h"

#include <cerrno>
#include <cstdio>

namespace jxmodel {
namespace {

constexpr std::string_view kExtensions[] = {".p4info.txtpb", ".p4info.txt", ".p4info", ".json"};

std::string oneLine(std::string_view text) {
  std::string line;
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (code >= 0x20 && code != 0x7F) {
      line += c;
      continue;
    }
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\x%02x", code);
    line += escape;
  }
  return line;
}

}  // namespace

int readSourceFile(const std::string& path, size_t most, std::string* text) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return errno;
  char chunk[65536];
  int failure = 0;
  while (failure == 0) {
    errno = 0;
    const size_t count = std::fread(chunk, 1, sizeof chunk, file);
    text->append(chunk, count);
    if (std::ferror(file) != 0) failure = errno;
    if (text->size() > most) failure = EFBIG;
    if (count == 0) break;
  }
  std::fclose(file);
  return failure;
}

std::string programNameOf(const std::string& path) {
  std::string name = path.substr(path.rfind('/') + 1);  // npos + 1 is 0
  for (const std::string_view extension : kExtensions) {
    if (name.size() <= extension.size()) continue;
    const size_t stem = name.size() - extension.size();
    if (name.compare(stem, extension.size(), extension) == 0) return name.substr(0, stem);
  }
  return name;
}

void fillError(LoadError* error, const std::string& file, std::string_view place,
               std::string_view reason) {
  if (error == nullptr) return;
  *error = {oneLine(file), place.empty() ? "/" : oneLine(place), oneLine(reason)};
}

}  // namespace jxmodel
