#include "JexPartnerLibSocket.h"

#include <nanomsg/pair.h>
#include <nanomsg/pipeline.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <system_error>

#include "JexPartnerLibMatchTypes.h"
#include "JexPartnerLibShared.h"
#include "JexPartnerLibStop.h"
#include "JexPartnerLibWire.h"

// The address sanitizer does not see a cancelled thread leave its frames; it is told before.
#ifdef __SANITIZE_ADDRESS__
extern "C" void __asan_handle_no_return();  // NOLINT(bugprone-reserved-identifier)
#define JEX_STACK_MAY_END() __asan_handle_no_return()
#else
#define JEX_STACK_MAY_END() static_cast<void>(0)
#endif

// nanomsg exports this without declaring it: it takes back what nn_term did. Weak, so that a
// nanomsg without it still loads; there a start after a shut-down stops at its first socket.
extern "C" __attribute__((weak)) void nn_init(void);

namespace PartnerLib {
namespace {

constexpr char kReverseNamePrefix[] = "ipc:///tmp/Partner_";
constexpr char kGrpcAddress[] = "0.0.0.0:50053";
constexpr int kMaxSendRetry = 100000;
constexpr int kClientPollTimeoutMs = 100;
constexpr std::chrono::seconds kShutdownPause{1};
// A sender that closes in mid-stream can leave a socket that polls readable with nothing to
// receive; this bounds the wait of the receive that follows.
constexpr int kRecvTimeoutMs = 100;
// Two threads can both see room for the one message that fits; this bounds the wait of the second,
// whose attempt then counts as one that found no room.
constexpr int kSendTimeoutMs = 100;
// What nanomsg opens until a side is up: two for its thread, one for each direction of a socket,
// one for each bound address and each connection. With fewer it aborts, never returns, or never
// takes the connection of the reverse path, so they are tried first. An agent needs more for each
// Partner; those can come later.
constexpr int kAgentDescriptors = 2 + 1 + 1;
constexpr int kPartnerDescriptors = 2 + 1 + 1 + 2 + 1 + 1;
// The receive thread takes at most this many messages between two attempts to send, so that a
// SliceAgent that sends without a pause cannot keep it from the next attempt.
constexpr int kMaxTakenBetweenAttempts = 64;

/// nanomsg sets its revents only when it found something.
bool polled(int result, const nn_pollfd& entry, short event) {
  return result > 0 && (entry.revents & event) != 0;
}

/// Whether the thread's last nanomsg error says that a socket is dead.
bool lastErrorIsFatal() {
  switch (nn_errno()) {
    case EBADF:
    case EFAULT:
    case EOPNOTSUPP:
    case ETERM:
    case EFSM:
      return true;
    default:
      return false;
  }
}

/// Whether the process can open `count` descriptors now.
bool canOpen(int count) {
  if (count == 0) return true;
  const int fd = eventfd(0, EFD_CLOEXEC);
  if (fd < 0) return false;
  const bool others = canOpen(count - 1);
  close(fd);
  return others;
}

/// Stops where no thread can be made. nanomsg makes one for its first socket, and aborts without.
void tryThread(const StopPlace& place) {
  pthread_t thread;
  const int error = pthread_create(
      &thread, nullptr, [](void* nothing) { return nothing; }, nullptr);
  PARTNER_CHECK_AT(place, error == 0, "Cannot start a thread: ", strerror(error));
  pthread_join(thread, nullptr);
}

/// A socket whose receives cannot wait for ever; negative if nanomsg gives none.
int openReceivingSocket(int protocol) {
  const int sock = nn_socket(AF_SP, protocol);
  if (sock >= 0)
    nn_setsockopt(sock, NN_SOL_SOCKET, NN_RCVTIMEO, &kRecvTimeoutMs, sizeof(kRecvTimeoutMs));
  return sock;
}

/// On a receive thread, the kind that shutdown() cancels, the socket that it serves; null
/// elsewhere.
thread_local PartnerSocket* receivesFor = nullptr;

/// Where a receive thread may end: no lock of nanomsg, the allocator or a queue is held here. A
/// thread that is cancelled anywhere else would take those locks with it.
void cancellationPoint() {
  if (receivesFor != nullptr) {
    JEX_STACK_MAY_END();
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    pthread_testcancel();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  }
}

/// Gives a received buffer back, also when the thread ends in between.
struct FreeMessage {
  void operator()(void* msg) const { nn_freemsg(msg); }
};
using ReceivedMessage = std::unique_ptr<void, FreeMessage>;

/// Receives one message; null when there is none, or when it is empty. `flags` are nn_recv's.
ReceivedMessage receiveMessage(int sock, int* nbytes, int flags) {
  void* buf = nullptr;
  *nbytes = nn_recv(sock, &buf, NN_MSG, flags);
  ReceivedMessage msg(*nbytes < 0 ? nullptr : buf);
  if (*nbytes < 1) {
    msg.reset();  // an empty message has a buffer too
  }
  return msg;
}

/// Receives and handles one message of the reverse path; false when there is none.
bool takeMessage(PartnerSocket* s, int flags) {
  int n = 0;
  const ReceivedMessage msg = receiveMessage(s->pollFds[1].fd, &n, flags);
  if (msg == nullptr) return false;
  processClientMessageFromSocket(msg.get(), n, s);
  return true;
}

/// What a receive thread does between two attempts to send: it takes what has arrived. A SliceAgent
/// that waits for room on the reverse path takes no requests, so without this the two would wait
/// for each other. The send goes on with the error that it had.
void takeWhatHasArrived() {
  if (receivesFor == nullptr) return;
  const int before = errno;
  for (int taken = 0; taken < kMaxTakenBetweenAttempts; ++taken) {
    if (!takeMessage(receivesFor, NN_DONTWAIT)) break;
  }
  errno = before;
}

/// The descriptor that is readable while a message waits on the socket; -1 if nanomsg gives none.
int receiveDescriptor(int sock) {
  int fd = -1;
  size_t size = sizeof(fd);
  return nn_getsockopt(sock, NN_SOL_SOCKET, NN_RCVFD, &fd, &size) < 0 ? -1 : fd;
}

/// One turn of the receive thread. The push socket is nearly always writable, so nn_poll() returns
/// at once; a turn that finds no message therefore waits on the reverse socket's own descriptor.
void receiveTurn(PartnerSocket* s, int receiveFd) {
  const int r = nn_poll(s->pollFds, s->numFds, kClientPollTimeoutMs);
  if (s->numFds >= 2 && polled(r, s->pollFds[1], NN_POLLIN)) {
    takeMessage(s, 0);
  } else {
    pollfd reverse = {receiveFd, POLLIN, 0};
    poll(&reverse, 1, kClientPollTimeoutMs);
  }
  cancellationPoint();
}

/// A reverse-path name of this process: its id and the local time of day.
std::string makeUniqueName(int pid) {
  const time_t now = time(nullptr);
  struct tm local = {};
  tzset();  // localtime_r() need not see a time zone that was set after its first use
  localtime_r(&now, &local);
  char timeOfDay[sizeof("HHMMSS")] = "";
  strftime(timeOfDay, sizeof(timeOfDay), "%H%M%S", &local);
  return kReverseNamePrefix + std::to_string(pid) + "_" + timeOfDay;
}

void closeEndpoint(int sock, int endpoint) {
  if (endpoint == -1) return;
  nn_shutdown(sock, endpoint);
  nn_close(sock);
}

}  // namespace

static_assert(offsetof(PartnerSocket, socket_) == 0);
static_assert(offsetof(PartnerSocket, numFds) == 4);
static_assert(offsetof(PartnerSocket, pollFds) == 8);
static_assert(offsetof(PartnerSocket, endpoints) == 32);
static_assert(offsetof(PartnerSocket, clientMode) == 44);
static_assert(offsetof(PartnerSocket, clientThread) == 48);

bool PartnerSocket::init(std::string name, bool testMode) {
  if (nn_init != nullptr) {
    nn_init();  // nothing to do unless an earlier shutdown() terminated nanomsg
  }
  numFds = 0;
  tryThread(PARTNER_HERE);
  return clientMode == 0 ? initAgent(name) : initClient(name, testMode, PARTNER_HERE);
}

bool PartnerSocket::initAgent(const std::string& name) {
  socket_ = canOpen(kAgentDescriptors) ? openReceivingSocket(NN_PULL) : -1;
  if (socket_ < 0) return false;
  endpoints[0] = nn_bind(socket_, name.c_str());
  if (endpoints[0] < 0) {
    nn_close(socket_);
    return false;
  }
  numFds = 1;
  pollFds[0] = {socket_, NN_POLLIN, 0};
  return true;
}

bool PartnerSocket::initClient(const std::string& name, bool testMode, const StopPlace& place) {
  socket_ = canOpen(kPartnerDescriptors) ? nn_socket(AF_SP, NN_PUSH) : -1;
  PARTNER_REQUIRE_AT(place, socket_ >= 0, "( socket_ >= 0 )", "Unable to open Client socket");
  endpoints[0] = nn_connect(socket_, name.c_str());
  if (endpoints[0] < 0) {
    nn_close(socket_);
    return false;
  }
  numFds = 1;
  pollFds[0] = {socket_, NN_POLLOUT, 0};

  const int reverse = openReceivingSocket(NN_PAIR);
  myPid = getpid();
  const std::string uniqueName = makeUniqueName(myPid);
  PARTNER_REQUIRE_AT(place, reverse >= 0, "( reverse >= 0 )",
                     "Cannot open socket for reverse path");
  endpoints[1] = nn_bind(reverse, uniqueName.c_str());
  if (endpoints[1] < 0) {
    nn_close(reverse);
    PARTNER_STOP_AT(place, "( endpoints[1] >= 0 )", "Cannot bind socket for reverse path");
  }
  numFds = 2;
  pollFds[1] = {reverse, NN_POLLIN | NN_POLLOUT, 0};
  PARTNER_CHECK_AT(place, uniqueName.length() < MAX_SOCKET_NAME_LEN,
                   "Size of socket name exceeds allowed", MAX_SOCKET_NAME_LEN);
  sendSocketNameToSliceAgent(socket_, myPid, uniqueName.c_str());
  boundSends(socket_);  // from here on: the registration waits for a SliceAgent to come up
  if (testMode) startgRPCServer();
  try {
    clientThread = new std::thread(clientThreadFunc, this);
  } catch (const std::system_error& error) {
    PARTNER_STOP_AT(place, "clientThread != nullptr",
                    "Cannot start the receive thread: ", error.code().message());
  }
  return true;
}

bool PartnerSocket::send(const void* buf, size_t size) { return socketSend(socket_, buf, size); }

bool PartnerSocket::readyToSend() { return socketReady(socket_); }

bool PartnerSocket::receive(void** buf, int* nbytes) {
  int n = 0;
  ReceivedMessage msg = receiveMessage(pollFds[0].fd, &n, 0);
  if (msg == nullptr) return false;
  *buf = msg.release();
  *nbytes = n;
  return true;
}

bool PartnerSocket::recv(void** buf, int* nbytes) {
  return dataAvailable() && receive(buf, nbytes);
}

bool PartnerSocket::recvWithTimeout(void** buf, int* nbytes, int timeoutMs) {
  const int r = nn_poll(&pollFds[0], 1, timeoutMs);
  if (r == 0) return false;
  PARTNER_REQUIRE(r > 0, "r >= 0", "Socket recvWithTimeout failed - remote disconnect/dead ",
                  error());
  if (!polled(r, pollFds[0], NN_POLLIN)) return false;
  return dataAvailable() && receive(buf, nbytes);
}

bool PartnerSocket::dataAvailable() {
  const int r = nn_poll(&pollFds[0], 1, 0);
  if (polled(r, pollFds[0], NN_POLLIN)) return true;
  PARTNER_REQUIRE(!lastErrorIsFatal(), "false",
                  "Socket dataAvailable failed - remote disconnect/dead ", error());
  return false;
}

void PartnerSocket::freeBuffer(void* buf) { nn_freemsg(buf); }

int PartnerSocket::getFd() {
  if (endpoints[0] < 0) return -1;
  return receiveDescriptor(socket_);
}

std::string PartnerSocket::error() { return nn_strerror(nn_errno()); }

void PartnerSocket::shutdown(bool terminate) {
  if (socket_ != -1) {
    if (clientMode != 0) {
      if (clientThread != nullptr) {
        pthread_cancel(clientThread->native_handle());
        clientThread->join();
        delete clientThread;
        clientThread = nullptr;
      }
      std::this_thread::sleep_for(kShutdownPause);  // goes on after a signal
      closeEndpoint(pollFds[1].fd, endpoints[1]);
      closeEndpoint(pollFds[2].fd, endpoints[2]);
    }
    closeEndpoint(socket_, endpoints[0]);
  }
  if (terminate) {
    // It closes what is not open, and must not leave the error of that behind: the next start's
    // sends look at the thread's last error.
    const int before = errno;
    nn_term();
    errno = before;
  }
}

void PartnerSocket::clientThreadFunc(PartnerSocket* s) {
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  receivesFor = s;
  const int receiveFd = receiveDescriptor(s->pollFds[1].fd);
  try {
    for (;;) receiveTurn(s, receiveFd);
  } catch (const std::bad_alloc&) {
    PARTNER_STOP_WITHOUT_MEMORY("false",
                                "Cannot handle a message from SliceAgent: Cannot allocate memory");
  }
}

void boundSends(int sock) {
  nn_setsockopt(sock, NN_SOL_SOCKET, NN_SNDTIMEO, &kSendTimeoutMs, sizeof(kSendTimeoutMs));
}

bool socketReady(int sock) {
  nn_pollfd entry = {sock, NN_POLLOUT, 0};
  const int r = nn_poll(&entry, 1, 0);
  if (polled(r, entry, NN_POLLOUT)) return true;
  PARTNER_REQUIRE(!lastErrorIsFatal(), "false",
                  "Socket readyToSend failed - remote disconnect/dead", nn_strerror(nn_errno()));
  return false;
}

bool socketSend(int sock, const void* buf, size_t size) {
  for (int attempt = 0; attempt < kMaxSendRetry; ++attempt) {
    if (socketReady(sock)) {
      const int sent = nn_send(sock, buf, size, 0);
      if (sent >= 0 && static_cast<size_t>(sent) == size) return true;
      // A send that ran into its time-out, or that a signal broke off, has taken nothing.
      const bool foundNoRoom = sent < 0 && (nn_errno() == ETIMEDOUT || nn_errno() == EINTR);
      PARTNER_REQUIRE(foundNoRoom, "( size_t )sent == size", "Cannot send ", size,
                      " bytes. Sent: ", sent);
    }
    const timespec none = {0, 0};
    nanosleep(&none, nullptr);
    cancellationPoint();
    takeWhatHasArrived();
  }
  PARTNER_STOP("false", "SOCKET Send ERROR(max retry) ", nn_strerror(nn_errno()));
}

void sendSocketNameToSliceAgent(int sock, int pid, const char* name) {
  RegisterMsg_t msg;
  msg.header = {MSG_REGISTER, static_cast<uint32_t>(pid), sizeof(msg)};
  snprintf(msg.name, sizeof(msg.name), "%s", name);
  // It may wait long for a SliceAgent; a signal that comes meanwhile must not lose it.
  while (nn_send(sock, &msg, sizeof(msg), 0) < 0 && nn_errno() == EINTR) {
  }
}

void startgRPCServer() {
  const jx_status_t jx_status = jx_rt_grpc_server_run_with_addr(kGrpcAddress);
  PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot spawn gRPC server socket on 50053");
}

}  // namespace PartnerLib
