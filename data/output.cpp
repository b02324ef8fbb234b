#include "output.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace jexdata {

void writeFile(const std::string& folder, const std::string& name, const std::string& content) {
  const std::filesystem::path path = std::filesystem::path(folder) / name;
  std::filesystem::create_directories(path.parent_path());
  // Two processes may make the same file at once: each has a name of its own until the end.
  const std::string unfinished = path.string() + "." + std::to_string(getpid()) + ".tmp";
  std::ofstream file(unfinished, std::ios::binary);
  file << content;
  file.close();
  if (!file) {
    std::error_code ignored;
    std::filesystem::remove(unfinished, ignored);
    throw std::runtime_error("cannot write " + path.string());
  }
  std::filesystem::rename(unfinished, path);
}

}  // namespace jexdata
