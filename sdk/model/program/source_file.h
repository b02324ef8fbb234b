// Files that programs are loaded from, and what is said about them.
#pragma once

#include <string>
#include <string_view>

#include "model/program/program.h"

namespace jxmodel {

/// Reads all of `path`, at most `most` bytes; 0, or the errno of what went wrong.
int readSourceFile(const std::string& path, size_t most, std::string* text);

/// The name of a program that only its file tells: "x" of "lib/x.json" and "lib/x.p4info.txtpb".
std::string programNameOf(const std::string& path);

/// Fills *error, which may be null. Names and values of a document can hold anything; the error
/// stays one line.
void fillError(LoadError* error, const std::string& file, std::string_view place,
               std::string_view reason);

}  // namespace jxmodel
