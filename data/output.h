// Files that appear under their name only when they are whole.
#pragma once

#include <string>

namespace jexdata {

/// Writes `content` to `folder`/`name` and makes the folders that are missing. Throws
/// std::filesystem::filesystem_error or std::runtime_error, which name the file.
void writeFile(const std::string& folder, const std::string& name, const std::string& content);

}  // namespace jexdata
