#include "routes.h"

#include <arpa/inet.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "command_error.h"

namespace jexapps {
namespace {

constexpr unsigned kReadAhead = 1 << 17;  // bytes

std::string_view trim(std::string_view text) {
  constexpr char kBlanks[] = " \t\r\n";
  const size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

bool parseAddress(std::string_view text, Prefix* prefix) {
  char terminated[INET6_ADDRSTRLEN + 1] = {};
  if (text.size() >= sizeof(terminated)) return false;
  std::memcpy(terminated, text.data(), text.size());
  const bool ipv6 = text.find(':') != std::string_view::npos;
  prefix->width = ipv6 ? 128 : 32;
  return inet_pton(ipv6 ? AF_INET6 : AF_INET, terminated, prefix->address) == 1;
}

}  // namespace

bool parsePrefix(std::string_view text, Prefix* prefix, std::string* error) {
  const auto fail = [&](const char* reason) {
    *error = "'" + std::string(text) + "' " + reason;
    return false;
  };
  const size_t slash = text.find('/');
  if (slash == std::string_view::npos) return fail("is no PREFIX/LENGTH");
  if (!parseAddress(text.substr(0, slash), prefix)) return fail("has no IPv4 or IPv6 address");
  const char* end = text.data() + text.size();
  const auto length = std::from_chars(text.data() + slash + 1, end, prefix->length);
  if (length.ec == std::errc::invalid_argument || length.ptr != end) {
    return fail("has no prefix length");
  }
  if (length.ec != std::errc() || prefix->length > prefix->width) {
    return fail(prefix->width == 32 ? "has a prefix length beyond 32"
                                    : "has a prefix length beyond 128");
  }
  return true;
}

RouteFile::RouteFile(const std::string& path) : path_(path) {
  errno = 0;
  file_.reset(gzopen(path.c_str(), "rb"));
  if (!file_) {
    throw CommandError(path + ": " + (errno != 0 ? std::strerror(errno) : "out of memory"));
  }
  gzbuffer(file_.get(), kReadAhead);
}

bool RouteFile::next(std::string_view* line) {
  std::string_view text;
  while (readLine(&text)) {
    ++line_number_;
    text = trim(text);
    if (text.empty() || text[0] == '#') continue;
    *line = text;
    return true;
  }
  int code = Z_OK;
  const char* reason = gzerror(file_.get(), &code);
  if (code == Z_ERRNO) reason = std::strerror(errno);
  if (code != Z_OK && code != Z_STREAM_END) throw CommandError(path_ + ": " + reason);
  return false;
}

bool RouteFile::readLine(std::string_view* line) {
  if (gzgets(file_.get(), buffer_, sizeof(buffer_)) == nullptr) return false;
  *line = buffer_;
  if (line->size() + 1 < sizeof(buffer_) || line->back() == '\n') return true;
  long_line_ = *line;
  while (long_line_.back() != '\n' && gzgets(file_.get(), buffer_, sizeof(buffer_)) != nullptr) {
    long_line_ += buffer_;
  }
  *line = long_line_;
  return true;
}

}  // namespace jexapps
