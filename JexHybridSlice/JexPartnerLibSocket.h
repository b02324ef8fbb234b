// The sockets of one side of the link between Partner and SliceAgent.
#pragma once

#include <nanomsg/nn.h>

#include <cstddef>
#include <string>
#include <thread>

#include "JexPartnerLib.h"
#include "JexPartnerLibStop.h"

#define JEX_HIDDEN __attribute__((visibility("hidden")))

namespace PartnerLib {

/// One class for both roles, chosen by `clientMode` before init().
///
/// SliceAgent: one pull socket bound to the well-known address. Partner: a push socket connected to
/// it, a pair socket bound to a name of its own (the reverse path), and a thread that hands every
/// message of the reverse path to processClientMessageFromSocket.
///
/// Threads. SliceAgent: the loop is the object's only user. Partner: any thread may send; the
/// receive thread reads pollFds, numFds and the reverse socket, which init() has set before it
/// starts and which stay as they are until shutdown() has joined it.
class JEX_API PartnerSocket {
 public:
  /// `mode`: 1 for a Partner, 0 for the SliceAgent.
  explicit PartnerSocket(int mode) : clientMode(mode) {}
  PartnerSocket(const PartnerSocket&) = delete;
  PartnerSocket& operator=(const PartnerSocket&) = delete;

  /// Opens the sockets; once per object. False if the SliceAgent's socket cannot be made or bound,
  /// or the Partner's cannot be connected; other failures stop the process. A Partner's init()
  /// blocks until its registration has left, and with `testMode` starts the SDK's gRPC server.
  bool init(std::string name, bool testMode);

  /// socketSend on the main socket.
  bool send(const void* buf, size_t size);
  /// socketReady on the main socket.
  bool readyToSend();
  /// Receives without waiting. On true *buf is a message of *nbytes > 0 bytes that goes back
  /// through freeBuffer(); on false both are unspecified.
  bool recv(void** buf, int* nbytes);
  /// The same, waiting at most `timeoutMs` for input.
  bool recvWithTimeout(void** buf, int* nbytes, int timeoutMs);
  /// Whether input is there.
  bool dataAvailable();
  void freeBuffer(void* buf);
  /// Descriptor that is readable while input is there, -1 without an endpoint.
  int getFd();
  /// Text of the thread's last nanomsg error.
  std::string error();
  /// Stops the thread, closes the sockets; with `terminate` ends the messaging library as well. A
  /// Partner's takes a second, in which queued messages leave: nanomsg has no linger.
  void shutdown(bool terminate);

  /// Body of the receive thread. It polls both sockets, and waits on the reverse socket's
  /// descriptor after a poll that found no message. Cancellation ends it between two messages, or
  /// between two attempts to send an answer. Between two such attempts it receives, too.
  static void clientThreadFunc(PartnerSocket* s);

  int socket_ = -1;                     ///< main socket: pull (SliceAgent) or push (Partner)
  int numFds = 0;                       ///< entries of pollFds in use
  nn_pollfd pollFds[3] = {};            ///< main, reverse, one that nobody opens
  int endpoints[3] = {-1, -1, -1};      ///< nanomsg endpoint of each entry, -1 = none
  int clientMode;                       ///< 1 = Partner, 0 = SliceAgent
  std::thread* clientThread = nullptr;  ///< receive thread, owned

 private:
  JEX_HIDDEN bool initAgent(const std::string& name);
  JEX_HIDDEN bool initClient(const std::string& name, bool testMode, const StopPlace& place);
  JEX_HIDDEN bool receive(void** buf, int* nbytes);
};

/// Whether `sock` can take a message now. Stops the process if the last nanomsg error of the thread
/// says that the socket is dead; that error may be older than this call.
JEX_API bool socketReady(int sock);

/// Bounds the wait inside nanomsg of every later send on `sock`; see socketSend.
void boundSends(int sock);

/// Sends one message, trying 100000 times for room; stops the process when there is none, or when
/// less than the message was taken. A send that a signal breaks off counts as one that found no
/// room. Returns true. Any thread; a receive thread handles what arrives between two attempts.
JEX_API bool socketSend(int sock, const void* buf, size_t size);

/// Sends a Partner's registration: its process id and the address of its reverse path. Blocks until
/// a SliceAgent takes it; the result is not looked at.
JEX_API void sendSocketNameToSliceAgent(int sock, int pid, const char* name);

/// Starts the SDK's gRPC server of test mode, or stops the process.
JEX_API void startgRPCServer();

}  // namespace PartnerLib

/// What the Partner does with a message of the reverse path. `buf` stays the caller's.
void processClientMessageFromSocket(void* buf, int nbytes, PartnerLib::PartnerSocket* socket);
