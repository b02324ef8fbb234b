#include "routes.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <new>

#include "command_error.h"
#include "value.h"

namespace jexapps {
namespace {

constexpr unsigned kReadAhead = 1 << 15;  // bytes
constexpr int kStopLookMs = 50;           // between two looks at stop requests while nothing comes
constexpr std::string_view kGzipMagic = "\x1f\x8b";

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

// The prefix that was meant where there are bits beyond it, else nothing.
std::string withoutHostBits(const Prefix& prefix) {
  const Bytes given(reinterpret_cast<const char*>(prefix.address), prefix.width / 8);
  Bytes kept = given;
  keepPrefix(prefix.width, prefix.length, &kept);
  if (kept == given) return {};
  char text[INET6_ADDRSTRLEN];
  inet_ntop(prefix.width == 32 ? AF_INET : AF_INET6, kept.data(), text, sizeof text);
  return std::string(text) + "/" + std::to_string(prefix.length);
}

}  // namespace

bool parsePrefix(std::string_view text, Prefix* prefix, std::string* error) {
  const auto fail = [&](const std::string& reason) {
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
    return fail("has a prefix length beyond " + std::to_string(prefix->width));
  }
  const std::string meant = withoutHostBits(*prefix);
  return meant.empty() || fail("has bits beyond the prefix; " + meant + "?");
}

// Unpacks gzip data, which may consist of several parts one after the other.
class RouteFile::Gunzip {
 public:
  Gunzip() {
    constexpr int kGzipOnly = 16;
    if (inflateInit2(&stream_, MAX_WBITS + kGzipOnly) != Z_OK) throw std::bad_alloc();
  }
  ~Gunzip() { inflateEnd(&stream_); }
  Gunzip(const Gunzip&) = delete;
  Gunzip& operator=(const Gunzip&) = delete;

  /// Appends what `bytes` hold. Null, or the reason why that cannot be.
  const char* unpack(std::string_view bytes, std::string* text) {
    stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream_.avail_in = static_cast<uInt>(bytes.size());
    bool more = false;  // of what has been read, for which there was no room
    while (stream_.avail_in > 0 || more) {
      if (complete_) inflateReset(&stream_);
      const int code = unpackPiece(text);
      complete_ = code == Z_STREAM_END;
      more = code == Z_OK && stream_.avail_out == 0;
      if (code == Z_BUF_ERROR) return nullptr;  // it was just enough
      if (code == Z_OK || complete_) continue;
      return stream_.msg != nullptr ? stream_.msg : "broken gzip data";
    }
    return nullptr;
  }

  /// Whether the data may end here.
  bool complete() const { return complete_; }

 private:
  int unpackPiece(std::string* text) {
    const size_t size = text->size();
    text->resize(size + kReadAhead);
    stream_.next_out = reinterpret_cast<Bytef*>(text->data() + size);
    stream_.avail_out = kReadAhead;
    const int code = inflate(&stream_, Z_NO_FLUSH);
    text->resize(size + kReadAhead - stream_.avail_out);
    return code;
  }

  z_stream stream_{};
  bool complete_ = false;
};

// Does not wait for the writer of a pipe: readMore does, and sees a requested stop meanwhile.
RouteFile::RouteFile(const std::string& path, std::function<bool()> stop_requested)
    : path_(path),
      stop_requested_(std::move(stop_requested)),
      fd_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
  if (fd_ < 0) fail(std::strerror(errno));
}

RouteFile::~RouteFile() {
  if (fd_ >= 0) close(fd_);
}

void RouteFile::fail(const std::string& reason) const { throw CommandError(path_ + ": " + reason); }

bool RouteFile::next(std::string_view* line) {
  std::string_view text;
  while (readLine(&text)) {
    ++line_number_;
    text = trim(text);
    if (text.empty() || text[0] == '#' || text[0] == ';') continue;
    *line = text;
    return true;
  }
  return false;
}

bool RouteFile::readLine(std::string_view* line) {
  for (;;) {
    const size_t end = text_.find('\n', begin_);
    if (end != std::string::npos) {
      *line = std::string_view(text_).substr(begin_, end - begin_);
      begin_ = end + 1;
      return true;
    }
    if (text_.size() - begin_ > kMaxLine) {
      fail("line " + std::to_string(line_number_ + 1) + " is longer than " +
           std::to_string(kMaxLine) + " bytes");
    }
    if (readMore()) continue;
    if (stopped_ || begin_ == text_.size()) return false;
    text_.push_back('\n');  // the last line has none
  }
}

// Adds to text_; false at the end.
bool RouteFile::readMore() {
  text_.erase(0, begin_);
  begin_ = 0;
  // Two bytes tell whether the file is compressed.
  do {
    if (ended_ || !readBytes()) return false;
  } while (!begun_ && !ended_ && bytes_.size() < kGzipMagic.size());
  if (!begun_ && std::string_view(bytes_).substr(0, 2) == kGzipMagic) {
    gunzip_ = std::make_unique<Gunzip>();
  }
  begun_ = true;
  if (!gunzip_) {
    text_.append(bytes_);
  } else if (const char* reason = gunzip_->unpack(bytes_, &text_)) {
    fail(reason);
  }
  bytes_.clear();
  if (ended_ && gunzip_ && !gunzip_->complete()) fail("the gzip data end in the middle");
  return true;
}

// Adds to bytes_, or finds the end. False if a stop is requested.
bool RouteFile::readBytes() {
  const size_t kept = bytes_.size();
  for (;;) {
    stopped_ = stop_requested_();
    if (stopped_) return false;
    pollfd watched{fd_, POLLIN, 0};
    if (poll(&watched, 1, kStopLookMs) <= 0) continue;
    bytes_.resize(kept + kReadAhead);
    const ssize_t count = read(fd_, bytes_.data() + kept, kReadAhead);
    const int error = errno;
    bytes_.resize(kept + static_cast<size_t>(std::max<ssize_t>(count, 0)));
    ended_ = count == 0;
    if (count >= 0) return true;
    if (error != EAGAIN && error != EINTR) fail(std::strerror(error));
  }
}

}  // namespace jexapps
