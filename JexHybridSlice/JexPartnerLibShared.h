// What both sides share beyond the socket: the process's globals, the decoder of requests, which is
// the cookie of the placement callbacks too, texts of statuses, and the clock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "JexPartnerLib.h"

namespace PartnerLib {

class PartnerSocket;

/// Decodes requests on the SliceAgent; on the Partner it is the cookie of the placement callbacks,
/// which send through its socket.
class JEX_API PartnerMessage {
 public:
  explicit PartnerMessage(PartnerSocket* socket) : pSocket_(socket) {}

  /// Checks one request and runs its handler. Returns true; a request that is malformed, or of a
  /// type that does not exist, stops the process. The handlers may write into the buffer.
  bool deSerialize(uint8_t dev, uint32_t sessHdl, const void* buf, size_t nbytes);

  PartnerSocket* pSocket_;  ///< the socket it serves; not owned
};

// Globals of a process.
JEX_API extern int myPid;                 ///< the Partner's process id; -1 in the SliceAgent
JEX_API extern PartnerSocket* pSocket;    ///< the Partner's socket, owned; null before start-up
JEX_API extern PartnerMessage* pMessage;  ///< the Partner's message, owned; null before start-up
JEX_API extern bool moduleInitDone;       ///< the SDK is up; never goes back

/// Text of a status out of the library's own table; "Unknown error" for a status that is not in it.
const char* statusText(jx_status_t status);

/// The SDK's text of a status. A null text throws std::logic_error.
JEX_API std::string jxStatusError(int status);

/// Milliseconds of the steady clock: a time base for differences, no wall-clock time.
JEX_API uint64_t getEpochTime();

/// Stores a word that other threads read without a lock, with a full fence behind. A sequentially
/// consistent store alone is no such fence on every machine: on AArch64 a later load may overtake
/// it.
inline void storeFenced(uint64_t& variable, uint64_t value) {
  __atomic_store_n(&variable, value, __ATOMIC_RELEASE);
  __atomic_thread_fence(__ATOMIC_SEQ_CST);
}

}  // namespace PartnerLib
