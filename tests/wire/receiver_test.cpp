// What a Partner does with the records of its reverse path, against a raw agent.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "JexPartnerLibClient.h"
#include "JexPartnerLibSocket.h"
#include "support/helper.h"
#include "support/stop.h"
#include "wire/notify_frames.h"
#include "wire/notify_processes.h"

namespace jextest {
namespace {

Stop stop(const std::string& error, const std::string& expression) {
  return {"Error: " + error, "JexPartnerLib", "processClientMessageFromSocket(", expression};
}

/// The queued copy of an idle record; bytes 2 and 3 are nobody's.
void expectIdleCopy(const Bytes& copy, const Bytes& record) {
  ASSERT_EQ(copy.size(), 20u);
  EXPECT_EQ(copy[0], 0);
  EXPECT_EQ(copy[1], record[1]);
  EXPECT_EQ(bytesFrom(copy, 4), bytesFrom(record, 4));
}

/// The queued copy of a digest record: `size` bytes of it, of which `held` were in the message.
void expectDigestCopy(const Bytes& copy, const Bytes& record, size_t size, size_t held) {
  ASSERT_EQ(copy.size(), size);
  EXPECT_EQ(copy[0], 1);
  EXPECT_EQ(copy[1], record[1]);
  EXPECT_EQ(u32At(copy, 4), u32At(record, 4));
  EXPECT_EQ(u64At(copy, 8), u64At(record, 8));
  EXPECT_EQ(u32At(copy, 16), size - 20);
  for (size_t i = 20; i < held; ++i) ASSERT_EQ(copy[i], record[i]) << i;
}

TEST(Receiver, QueuesAnIdleRecord) {
  NotifyPair pair;
  pair.registerTable();
  const Bytes record = idleRecord(kAllKinds, 0xFEEDF00D, 0x1122334455667788, 0xC3);
  pair.reverse.send(record);
  size_t size = 0;
  const Bytes copy = pair.take(&size);
  EXPECT_EQ(size, 20u);
  expectIdleCopy(copy, record);
  EXPECT_EQ(pair.partner.ask("empty q"), "0");
}

TEST(Receiver, QueuesADigestRecord) {
  NotifyPair pair;
  pair.registerDigest();
  const Bytes record = digestRecord(kAddresses, 0x1122334455667788, countingBytes(35), 0xC3);
  pair.reverse.send(record);
  expectDigestCopy(pair.take(), record, 55, 55);
  EXPECT_EQ(pair.partner.ask("empty q"), "0");
}

TEST(Receiver, QueuesADigestWithoutValues) {
  NotifyPair pair;
  pair.registerDigest();
  const Bytes record = digestRecord(kAddresses, 5, {});
  pair.reverse.send(record);
  expectDigestCopy(pair.take(), record, 20, 20);
}

TEST(Receiver, QueuesTheLargestDigest) {
  NotifyPair pair;
  pair.registerDigest();
  for (const size_t values : {2027u, 65515u}) {
    const Bytes record = digestRecord(kAddresses, 5, countingBytes(values));
    pair.reverse.send(record);
    expectDigestCopy(pair.take(), record, 20 + values, 20 + values);
  }
}

// How much is copied is the record's own word. Of a message that is shorter than that nothing is
// read beyond its end; of a longer one the rest is left.
TEST(Receiver, CopiesAsMuchOfADigestAsItSays) {
  NotifyPair pair;
  pair.registerDigest();
  for (const uint16_t length : std::vector<uint16_t>{20, 21, 30, 39, 40, 41, 500, 65535}) {
    SCOPED_TRACE(length);
    const Bytes record = digestRecordOfLength(length, countingBytes(20));
    pair.reverse.send(record);
    expectDigestCopy(pair.take(), record, length, std::min<size_t>(length, record.size()));
  }
}

// The same with a buffer that ends where the message does; a sanitizer sees one byte too many.
TEST(Receiver, ReadsNothingBehindADigest) {
  NotifyPair pair;
  pair.registerDigest();
  for (const uint16_t length : std::vector<uint16_t>{20, 21, 22, 500, 65535}) {
    SCOPED_TRACE(length);
    const Bytes record = digestRecordOfLength(length, {7});
    EXPECT_EQ(pair.partner.ask("receive " + hexOf(record)), "done");
    expectDigestCopy(pair.take(), record, length, std::min<size_t>(length, record.size()));
  }
}

// A length that does not even cover the head: what is queued is a whole head all the same.
TEST(Receiver, WritesNothingBehindADigestThatSaysTooLittle) {
  NotifyPair pair;
  pair.registerDigest();
  for (const uint16_t length : std::vector<uint16_t>{0, 1, 19}) {
    SCOPED_TRACE(length);
    const Bytes record = digestRecordOfLength(length, {7, 8});
    pair.reverse.send(record);
    expectDigestCopy(pair.take(), record, 20, 20);
  }
}

TEST(Receiver, KeepsTheOrderOfRegistrationsOnOneQueue) {
  NotifyPair pair;
  pair.registerTable();
  EXPECT_EQ(pair.partner.ask("digest limits addresses 65535 q"), "true");
  EXPECT_EQ(u32At(pair.agent.receive(), 0), 8u);
  constexpr uint32_t kEach = 200;
  for (uint32_t i = 0; i < kEach; ++i) {
    pair.reverse.send(idleRecord(kAllKinds, i, i));
    pair.reverse.send(digestRecord(kAddresses, i, {static_cast<uint8_t>(i)}));
  }
  pair.waitUntilReceived();
  uint32_t idle = 0;
  uint32_t digests = 0;
  for (uint32_t i = 0; i < 2 * kEach && !HasFailure(); ++i) {
    const Bytes copy = pair.take();
    ASSERT_GE(copy.size(), 20u);
    if (copy[0] == 0) {
      EXPECT_EQ(u32At(copy, 4), kAllKinds);
      EXPECT_EQ(u32At(copy, 8), idle++);
    } else {
      EXPECT_EQ(u32At(copy, 4), kAddresses);
      EXPECT_EQ(u64At(copy, 8), digests++);
    }
  }
  EXPECT_EQ(idle, kEach);
  EXPECT_EQ(digests, kEach);
  EXPECT_EQ(pair.partner.ask("empty q"), "0");
}

TEST(Receiver, QueuesWhereEachRegistrationSays) {
  NotifyPair pair;
  pair.registerTable();
  ASSERT_EQ(pair.partner.ask("queue other 16"), "true");
  EXPECT_EQ(pair.partner.ask("digest limits addresses 65535 other"), "true");
  EXPECT_EQ(u32At(pair.agent.receive(), 0), 8u);
  pair.reverse.send(digestRecord(kAddresses, 5, {1}));
  pair.reverse.send(idleRecord(kAllKinds, 1, 1));
  expectIdleCopy(pair.take(), idleRecord(kAllKinds, 1, 1));
  EXPECT_EQ(pair.partner.ask("empty q"), "0");
  EXPECT_EQ(pair.partner.ask("empty other"), "1");
}

// Table and learn ids are different numbers of different things, even where they are equal.
TEST(Receiver, DoesNotMistakeADigestForATable) {
  NotifyPair pair;
  pair.registerTable();
  pair.reverse.send(digestRecord(kAllKinds, 1, {}));
  expectStop(pair.partner, stop("Cannot find table in digest notify map: 196615", "false"));
}

TEST(Receiver, DropsAnIdleRecordThatComesAfterDeregistration) {
  NotifyPair pair;
  pair.registerTable();
  pair.reverse.send(idleRecord(kAllKinds, 1, 1));
  pair.waitUntilReceived();
  EXPECT_EQ(pair.partner.ask("no-idle limits all_kinds 65535"), "false");
  EXPECT_EQ(u32At(pair.agent.receive(), 292), 0u);
  for (uint32_t i = 0; i < 50; ++i) pair.reverse.send(idleRecord(kAllKinds, 2, i));
  pair.waitUntilReceived();
  EXPECT_EQ(pair.partner.ask("empty q"), "1") << "what came before stays";
  EXPECT_EQ(pair.partner.ask("destroy q"), "true");
  pair.reverse.send(idleRecord(kAllKinds, 3, 1));
  pair.waitUntilReceived();
}

TEST(Receiver, DropsADigestThatComesAfterDeregistration) {
  NotifyPair pair;
  pair.registerDigest();
  pair.reverse.send(digestRecord(kAddresses, 1, {1}));
  pair.waitUntilReceived();
  EXPECT_EQ(pair.partner.ask("no-digest limits addresses 65535"), "true");
  EXPECT_EQ(u32At(pair.agent.receive(), 284), 0u);
  for (uint32_t i = 0; i < 50; ++i) pair.reverse.send(digestRecord(kAddresses, i, {2}));
  pair.waitUntilReceived();
  EXPECT_EQ(pair.partner.ask("empty q"), "1") << "what came before stays";
  EXPECT_EQ(pair.partner.ask("destroy q"), "true");
  pair.reverse.send(digestRecord(kAddresses, 3, {3}));
  pair.waitUntilReceived();
}

// What is dropped is checked before all the same.
TEST(Receiver, StopsOnAMalformedRecordForADeregisteredTable) {
  NotifyPair pair;
  pair.registerTable();
  EXPECT_EQ(pair.partner.ask("no-idle limits all_kinds 65535"), "false");
  Bytes record = idleRecord(kAllKinds, 1, 1);
  record.push_back(0);
  pair.reverse.send(record);
  expectStop(pair.partner,
             stop(" Incorrect Idle message from Slice", "nbytes == sizeof( PartnerIdleNotify )"));
}

Bytes resized(Bytes record, size_t size) {
  record.resize(size);
  return record;
}

struct BadRecord {
  const char* name;
  Bytes record;
  std::string error;
  std::string expression;
};

const char kIdleSize[] = "nbytes == sizeof( PartnerIdleNotify )";
const char kDigestSize[] = "( nbytes >= ( int )sizeof( PartnerDigestNotify ) )";
const char kMismatch[] = "mismatch Notify msg size server and client. type: ";

class BadRecords : public testing::TestWithParam<BadRecord> {};
INSTANTIATE_TEST_SUITE_P(
    Each, BadRecords,
    testing::Values(BadRecord{"Idle21", resized(idleRecord(kAllKinds, 1, 1), 21),
                              " Incorrect Idle message from Slice", kIdleSize},
                    BadRecord{"Idle19", resized(idleRecord(kAllKinds, 1, 1), 19),
                              " Incorrect Idle message from Slice", kIdleSize},
                    BadRecord{"Idle1", {0}, " Incorrect Idle message from Slice", kIdleSize},
                    BadRecord{"IdleSizeBeforeItsTable", resized(idleRecord(5, 1, 1), 21),
                              " Incorrect Idle message from Slice", kIdleSize},
                    BadRecord{"IdleOfNoTable", idleRecord(12345, 1, 1),
                              "Cannot find table in notify map: 12345", "false"},
                    BadRecord{"IdleOfTheLastId", idleRecord(0xFFFFFFFF, 1, 1),
                              "Cannot find table in notify map: 4294967295", "false"},
                    BadRecord{"Digest19", resized(digestRecord(kAddresses, 1, {}), 19),
                              "Incorrect digest message from Slice", kDigestSize},
                    BadRecord{"Digest1", {1}, "Incorrect digest message from Slice", kDigestSize},
                    BadRecord{"DigestSizeBeforeItsId", resized(digestRecord(5, 1, {}), 19),
                              "Incorrect digest message from Slice", kDigestSize},
                    BadRecord{"DigestOfNobody", digestRecord(12345, 1, {}),
                              "Cannot find table in digest notify map: 12345", "false"},
                    BadRecord{"DigestOfTheLastId", digestRecord(0xFFFFFFFF, 1, {}),
                              "Cannot find table in digest notify map: 4294967295", "false"},
                    BadRecord{"Kind2", Bytes(20, 2), std::string(kMismatch) + '\2', "false"},
                    BadRecord{"Kind2Alone", {2}, std::string(kMismatch) + '\2', "false"},
                    BadRecord{"KindA", {'A', 1, 2, 3}, std::string(kMismatch) + 'A', "false"},
                    BadRecord{"Kind253", Bytes(12, 253), std::string(kMismatch) + '\xFD', "false"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(BadRecords, StopThePartner) {
  NotifyPair pair;
  pair.registerTable();
  EXPECT_EQ(pair.partner.ask("digest limits addresses 65535 q"), "true");
  EXPECT_EQ(u32At(pair.agent.receive(), 0), 8u);
  pair.reverse.send(GetParam().record);
  expectStop(pair.partner, stop(GetParam().error, GetParam().expression));
}

// Another end of line than the record's stands behind this one.
TEST(Receiver, StopsOnAKindThatIsAnEndOfLine) {
  NotifyPair pair;
  pair.reverse.send({'\n', 1, 2, 3});
  EXPECT_EQ(pair.partner.waitForExit().signal, SIGABRT);
  EXPECT_EQ(pair.partner.standardError().find("Error: " + std::string(kMismatch) + "\n\n"),
            pair.partner.standardError().find("Error: "));
}

/// A queue on which a record still has to arrive when this process has left main(); null: none.
void* last_queue = nullptr;

template <typename Registration>
void registerForTheEnd(std::unordered_map<uint32_t, std::unique_ptr<Registration>>& registrations,
                       uint32_t id) {
  const Registration registration{last_queue, PartnerNotificationQueueCreateToken(last_queue),
                                  nullptr, nullptr};
  registrations.emplace(id, std::make_unique<Registration>(registration));
}

/// Runs when everything that has a destructor is gone, where the receive thread would still run.
__attribute__((destructor)) void receiveAtTheEnd() {
  if (last_queue == nullptr) return;
  for (Bytes record : {idleRecord(kAllKinds, 1, 1), digestRecord(kAddresses, 1, {1})}) {
    processClientMessageFromSocket(record.data(), static_cast<int>(record.size()), nullptr);
  }
  void* records[3] = {};
  const size_t count = PartnerNotificationQueueTryDequeue(last_queue, records, 3);
  PartnerNotificationQueueValuesFree(records, count);
  _exit(count == 2 ? EXIT_SUCCESS : EXIT_FAILURE);
}

JEX_HELPER(leaving_partner) {
  PartnerNotificationQueueCreate("q", 16, &last_queue);
  registerForTheEnd(partnerNotificationQueueMap, kAllKinds);
  registerForTheEnd(partnerDigestNotificationQueueMap, kAddresses);
  return EXIT_FAILURE;  // receiveAtTheEnd() has the last word
}

TEST(Receiver, ReceivesUntilAPartnerThatLeavesWithoutAShutDownIsGone) {
  Child partner = Child::helper("leaving_partner");
  const Exit exit = partner.waitForExit();
  EXPECT_EQ(exit.signal, 0) << partner.standardError();
  EXPECT_EQ(exit.code, EXIT_SUCCESS) << partner.standardError();
}

// A queue takes blocks of 32 from the heap once its first ones are full.
TEST(Receiver, StopsWhenAQueueCannotGrowForIdleRecords) {
  NotifyPair pair;
  pair.registerTable();
  ASSERT_EQ(pair.partner.ask("no-blocks"), "done");
  for (uint32_t i = 0; i < 33; ++i) pair.reverse.send(idleRecord(kAllKinds, i, i));
  expectStop(pair.partner, stop("Cannot enqueue notify msg", "ok == true"));
}

TEST(Receiver, StopsWhenAQueueCannotGrowForDigests) {
  NotifyPair pair;
  pair.registerDigest();
  ASSERT_EQ(pair.partner.ask("no-blocks"), "done");
  for (uint32_t i = 0; i < 33; ++i) pair.reverse.send(digestRecord(kAddresses, i, {1}));
  expectStop(pair.partner, stop("Cannot enqueue digest notify msg", "ok == true"));
}

}  // namespace
}  // namespace jextest
