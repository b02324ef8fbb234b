// A Partner and an agent with notifications, as processes that a test drives line by line.
#pragma once

#include <string>
#include <vector>

#include "jxsdk/types.h"
#include "support/child.h"
#include "support/raw_socket.h"

namespace jextest {

/// A Partner whose virtual device 1 carries `programs`. It starts idle; its commands:
///   start                                      PartnerLibStartup             -> "true"
///   fault ENTRY NTH status=N|null              jx_model_fault_arm            -> "0"
///   no-token                                   the next token has no memory  -> "done"
///   no-memory-from SIZE    no new finds memory from the next one of SIZE bytes on -> "done"
///   no-blocks                                  no queue can grow any more    -> "done"
///   queue QUEUE SIZE                           create the queue named QUEUE  -> "true"
///   destroy QUEUE                              destroy it                    -> "true"
///   idle PROGRAM TABLE INTERVAL MAX MIN PIPE QUEUE   register                -> "true"
///   no-idle PROGRAM TABLE PIPE                 deregister                    -> "false"
///   digest PROGRAM DIGEST PIPE QUEUE           register                      -> "true"
///   no-digest PROGRAM DIGEST PIPE              deregister                    -> "true"
///   take QUEUE      waits for a notification, takes it: "SIZE HEX", SIZE as it was allocated
///   empty QUEUE     what can be taken now: "0" or how many
///   receive HEX     hands a record of just these bytes to the receiver       -> "done"
/// End of input ends it with status 0, without a shut-down.
Child startNotifyPartner(const std::vector<std::string>& programs = {"limits"},
                         const Child::Environment& environment = {});

/// Obeys the command `fault`: its words.
jx_status_t armFault(const std::vector<std::string>& words);

/// A started Partner, its raw agent and the agent's end of its reverse path.
struct NotifyPair {
  explicit NotifyPair(const std::vector<std::string>& programs = {"limits"},
                      const Child::Environment& environment = {});
  uint32_t pid() const { return static_cast<uint32_t>(partner.pid()); }
  /// Creates queue "q" and registers table all_kinds of "limits" on it; the request is received.
  void registerTable();
  /// Creates queue "q" and registers digest "addresses" of "limits" on it; the same.
  void registerDigest();
  /// Takes one notification out of queue "q"; *size is what had been allocated for it.
  Bytes take(size_t* size = nullptr);
  /// Waits until all records that were sent before have been handled.
  void waitUntilReceived();

  RawAgent agent;
  Child partner;
  RawSocket reverse;
};

/// An agent whose physical device 0 carries `programs`, serving with a receive wait of 20 ms. Its
/// commands; those without an answer of their own answer with the status of the SDK's call:
///   fault ENTRY NTH status=N|null
///   no-memory-from SIZE    no new finds memory from the next one of SIZE bytes on -> "done"
///   inject PROGRAM DIGEST HEX         one digest of these values, in one message
///   count-up PROGRAM DIGEST FIRST N   N digests of one field of 64 bits: FIRST, FIRST + 1, ...
///   flood PROGRAM N DIGEST...         the same with 1 to N, all at once, when armed
///   expire PROGRAM TABLE HANDLE       lets an entry age out
///   storm-digests PROGRAM DIGEST      begins to make digests, 1, 2, ...          -> "begun"
///   storm-expiries PROGRAM TABLE HANDLE COUNT   entries that age out, in turn    -> "begun"
///   calm                              ends both          -> how many the device took
///   settled                           waits until the device has told all that there is to tell
///   counts PROGRAM DIGEST             "DELIVERED UNACKNOWLEDGED"
///   heartbeat                         PeriodicHeartbeatUpdate -> "true"
/// End of input ends it with status 0.
Child startNotifyAgent(const std::vector<std::string>& programs = {"limits"},
                       const Child::Environment& environment = {});

/// An agent and a raw Partner that has registered.
struct NotifyAgentPair {
  explicit NotifyAgentPair(const std::vector<std::string>& programs = {"limits"},
                           const Child::Environment& environment = {});
  /// Expects that the agent has taken all that was sent: it stops on a request of no known type
  /// that is sent behind it, and on nothing else.
  void expectAllTaken();
  /// Waits until the agent has taken all that was sent; returns what it has sent meanwhile.
  std::vector<Bytes> waitUntilTaken();

  Child agent;
  RawPartner partner;
};

/// `bytes` as hexadecimal digits, and back.
std::string hexOf(const Bytes& bytes);
Bytes bytesOfHex(const std::string& digits);

}  // namespace jextest
