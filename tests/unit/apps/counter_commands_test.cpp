// counters-start, counters-read, counters-stop, barrier and latency: what they answer, and what
// they ask the library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "latency.h"
#include "shell_on_device.h"

namespace jexapps {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

class CounterCommands : public ShellOnDevice {};

TEST_F(CounterCommands, StartReadAndStopATable) {
  EXPECT_EQ(answer("counters-start port_counters"), "ok 512 entries");
  partner_.counters = {{1, 64}, {2, 128}, {18446744073709551615u, 9223372036854775808u}};
  partner_.synced = 990;
  partner_.time = 1000;
  EXPECT_EQ(answer("counters-read port_counters 1 2"),
            "#1 packets=2 bytes=128\n"
            "#2 packets=18446744073709551615 bytes=9223372036854775808\n"
            "ok 2 entries, synced 10 ms ago");
  EXPECT_EQ(answer("counters-stop port_counters"), "ok");
  EXPECT_THAT(partner_.calls, ElementsAre("start l2_switch.port_counters", "read port_counters 1 2",
                                          "barrier plain", "stop port_counters"));
}

TEST_F(CounterCommands, PrintObjectsAsJson) {
  useFormat(/*json=*/true);
  EXPECT_EQ(answer("counters-start port_counters"), R"({"ok":true,"entries":512})");
  partner_.counters = {{7, 448}};
  partner_.synced = 990;
  partner_.time = 1000;
  EXPECT_EQ(answer("counters-read port_counters 0 1"),
            "{\"index\":0,\"packets\":7,\"bytes\":448}\n"
            "{\"ok\":true,\"entries\":1,\"synced\":990,\"now\":1000}");
}

TEST_F(CounterCommands, ReadAllThatIsNotLimited) {
  given({"counters-start port_counters"});
  EXPECT_THAT(answer("counters-read port_counters 510"),
              MatchesRegex("#510 .*\n#511 .*\nok 2 entries, never synced"));
  EXPECT_THAT(answer("counters-read port_counters"), HasSubstr("ok 512 entries"));
  EXPECT_EQ(answer("counters-read port_counters 512"), "ok 0 entries, never synced");
  EXPECT_EQ(answer("counters-read port_counters 3 0"), "ok 0 entries, never synced");
}

TEST_F(CounterCommands, RefuseEntriesThatTheTableDoesNotHave) {
  given({"counters-start port_counters"});
  partner_.calls.clear();
  const std::string reason = "error: port_counters: it has no entries ";
  EXPECT_EQ(answer("counters-read port_counters 511 2"),
            reason + "511 to 512, but 512, counted from 0");
  EXPECT_EQ(answer("counters-read port_counters 513"), reason + "513, but 512, counted from 0");
  EXPECT_EQ(answer("counters-read port_counters 1 4294967295"),
            reason + "1 to 4294967295, but 512, counted from 0");
  EXPECT_EQ(answer("counters-read port_counters 4294967295 1"),
            reason + "4294967295 to 4294967295, but 512, counted from 0");
  EXPECT_THAT(answer("counters-read port_counters 1 few"), StartsWith("error: "));
  EXPECT_THAT(partner_.calls, IsEmpty());
}

TEST_F(CounterCommands, RefuseWhatTheLibraryMustNotBeAsked) {
  EXPECT_EQ(answer("counters-start dmac"), "error: dmac is no counter table but match_direct");
  EXPECT_EQ(answer("counters-read port_counters 0 1"),
            "error: port_counters: counters have not been started; counters-start does so");
  EXPECT_EQ(answer("counters-stop port_counters"),
            "error: port_counters: counters have not been started; counters-start does so");
  EXPECT_EQ(answer("barrier port_counters"),
            "error: port_counters: counters have not been started; counters-start does so");
  EXPECT_THAT(partner_.calls, IsEmpty());
  given({"counters-start port_counters"});
  EXPECT_EQ(answer("counters-start l2_switch.port_counters"),
            "error: port_counters: counters have been started; counters-stop ends them");
  EXPECT_THAT(partner_.calls, ElementsAre("start l2_switch.port_counters"));
}

TEST_F(CounterCommands, SayThatTheSegmentIsFull) {
  partner_.segment_is_full = true;
  EXPECT_EQ(answer("counters-start port_counters"),
            "error: port_counters: the shared segment has no room for the counters of 512 entries: "
            "no memory");
  partner_.segment_is_full = false;
  EXPECT_EQ(answer("counters-start port_counters"), "ok 512 entries");
}

// Memory that is not there ends the process when it is written.
TEST_F(CounterCommands, RefuseWhatSharedMemoryHasNoRoomFor) {
  partner_.free_shared_memory = 1024 * 1024;
  EXPECT_EQ(answer("counters-start route_counters"),
            "error: route_counters: its counters need 1088 KiB of shared memory, and /dev/shm has "
            "1024 KiB free");
  EXPECT_THAT(partner_.calls, IsEmpty());
  partner_.free_shared_memory = 1088 * 1024;
  EXPECT_EQ(answer("counters-start route_counters"), "ok 65536 entries");
  partner_.free_shared_memory = 100;
  EXPECT_THAT(answer("counters-start port_counters"), HasSubstr("need 72 KiB"));
  partner_.free_shared_memory = std::nullopt;  // who cannot be asked does not refuse
  EXPECT_EQ(answer("counters-start port_counters"), "ok 512 entries");
}

// The segment keeps the memory of counters that have been stopped.
TEST_F(CounterCommands, StartAgainInTheMemoryThatTheyHad) {
  given({"counters-start route_counters", "counters-stop route_counters"});
  partner_.free_shared_memory = 64 * 1024;
  given({"counters-start route_counters", "counters-stop route_counters"});
  partner_.free_shared_memory = 64 * 1024 - 1;
  EXPECT_THAT(answer("counters-start route_counters"), HasSubstr("need 64 KiB"));
}

// The agent would look for these counters in the other partner's segment, and stop.
TEST_F(CounterCommands, RefuseAnAgentThatKeepsAnotherPartnersSegment) {
  partner_.agent_keeps_counters = true;
  EXPECT_EQ(answer("counters-start port_counters"),
            "error: port_counters: the slice agent has the counter segment of another partner, and "
            "can have one only in its life; start it anew");
  EXPECT_THAT(partner_.calls, IsEmpty());
  partner_.agent_keeps_counters = false;
  given({"counters-start port_counters"});
  partner_.agent_keeps_counters = true;  // ours
  given({"counters-start route_counters"});
}

TEST_F(CounterCommands, StartAgainWhatHasBeenStopped) {
  given({"counters-start port_counters", "counters-stop port_counters",
         "counters-start port_counters"});
  EXPECT_THAT(answer("counters-read port_counters 0 1"), HasSubstr("ok 1 entry"));
}

class BarrierCommands : public ShellOnDevice {};

TEST_F(BarrierCommands, TellTimeStampAndRoundTrip) {
  partner_.time = 5000;
  EXPECT_THAT(answer("barrier"), MatchesRegex("ok barrier 5001, round trip [0-9]+\\.[0-9]+ ms"));
  given({"counters-start port_counters"});
  partner_.time = 6000;
  EXPECT_THAT(answer("barrier port_counters"), HasSubstr("barrier 6001,"));
  partner_.time = 7000;
  EXPECT_THAT(answer("barrier port_counters double"), HasSubstr("barrier 7011,"));
  useFormat(/*json=*/true);
  partner_.time = 8000;
  const json object = json::parse(answer("barrier"));
  EXPECT_EQ(object.at("ok"), true);
  EXPECT_EQ(object.at("timestamp"), 8001);
  EXPECT_GE(object.at("round_trip"), 0.0);
  EXPECT_THAT(partner_.calls,
              ElementsAre("barrier plain", "start l2_switch.port_counters", "barrier port_counters",
                          "double barrier port_counters", "barrier plain"));
}

TEST_F(BarrierCommands, GiveUpWhenTheTimeIsOver) {
  partner_.answers = false;
  partner_.time = 5000;
  EXPECT_EQ(answer("barrier timeout=20"),
            "error: barrier 5001: no answer within 20 ms: the slice agent hangs, has ended, or has "
            "much to do");
  useFormat(/*json=*/true);
  const json object = json::parse(answer("barrier timeout=0"));
  EXPECT_EQ(object.at("ok"), false);
  EXPECT_EQ(object.at("timed_out"), true);
  EXPECT_THAT(object.at("error"), HasSubstr("no answer within 0 ms"));
}

TEST_F(BarrierCommands, SayWhatASyncMayWaitFor) {
  answer("counters-start port_counters");
  partner_.answers = false;
  partner_.time = 5000;
  EXPECT_EQ(answer("barrier port_counters double timeout=20"),
            "error: barrier 5011: no answer within 20 ms: the slice agent hangs, has ended, has "
            "much to do, or makes no counter updates, for which a sync that came while another one "
            "was under way waits");
}

TEST_F(BarrierCommands, EndEarlyWhenTheShellIsToEnd) {
  partner_.answers = false;
  stop_ = true;
  EXPECT_THAT(answer("barrier timeout=4294967295"),
              MatchesRegex("error: barrier [0-9]+: interrupted"));
}

// Two barriers of one millisecond would have one name: the answer to the first would pass for the
// second's.
TEST_F(BarrierCommands, NeverHaveATimeStampTwice) {
  given({"counters-start port_counters"});
  partner_.time = 5000;
  EXPECT_THAT(answer("barrier port_counters double"), HasSubstr("barrier 5011,"));
  EXPECT_THAT(answer("barrier"), HasSubstr("barrier 5013,")) << "time goes on with each look";
}

TEST_F(BarrierCommands, RefuseWordsThatTheyDoNotKnow) {
  given({"counters-start port_counters"});
  EXPECT_EQ(answer("barrier port_counters triple"),
            "error: behind the table stands nothing, or double, not 'triple'");
  EXPECT_EQ(answer("barrier dmac"), "error: dmac is no counter table but match_direct");
  EXPECT_THAT(answer("barrier patience=3"), StartsWith("error: "));
}

TEST(LatencyBins, CoverAllTimesWithoutGaps) {
  EXPECT_EQ(rangeOfBin(0).from, 0u);
  EXPECT_EQ(rangeOfBin(0).below, 10u);
  for (size_t bin = 1; bin < RoundTrips::kBins; ++bin) {
    EXPECT_EQ(rangeOfBin(bin).from, rangeOfBin(bin - 1).below) << bin;
  }
  EXPECT_EQ(rangeOfBin(30).below, 160u);
  EXPECT_EQ(rangeOfBin(31).from, 160u);
  EXPECT_EQ(rangeOfBin(31).below, 0u);
}

std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

RoundTrips someTrips() {
  RoundTrips trips;
  trips.max = 204;
  trips.bins[0] = 400;
  trips.bins[1] = 1;
  trips.bins[31] = 200;
  return trips;
}

TEST_F(BarrierCommands, DrawBarsOnATerminalOnly) {
  partner_.trips = someTrips();
  std::vector<std::string> lines = linesOf(answer("latency"));
  ASSERT_EQ(lines.size(), RoundTrips::kBins + 1);
  EXPECT_EQ(lines[0], "  0 to   9 ms            400");
  EXPECT_EQ(lines[31], "160 ms and more          200");
  EXPECT_EQ(lines[32], "ok 601 answers, longest 204 ms");

  useFormat(/*json=*/false, /*columns=*/70);
  lines = linesOf(answer("latency"));
  const size_t bar = 70 - lines[2].size() - 2;
  EXPECT_EQ(lines[0], "  0 to   9 ms            400  " + std::string(bar, '#'));
  EXPECT_EQ(lines[1], " 10 to  14 ms              1  #");
  EXPECT_EQ(lines[2], " 15 to  19 ms              0");
  EXPECT_EQ(lines[31], "160 ms and more          200  " + std::string(bar / 2, '#'));
}

TEST(LatencyBins, HaveNoBarsWhereThereIsNoRoom) {
  EXPECT_EQ(renderBins(someTrips(), 20), renderBins(someTrips(), 0));
}

TEST_F(BarrierCommands, TellBinsAsJson) {
  useFormat(/*json=*/true);
  partner_.trips = someTrips();
  const json object = json::parse(answer("latency"));
  EXPECT_EQ(object.at("answers"), 601);
  EXPECT_EQ(object.at("max"), 204);
  EXPECT_EQ(object.at("max_is_round_trip"), true);
  ASSERT_EQ(object.at("bins").size(), RoundTrips::kBins);
  EXPECT_EQ(object.at("bins")[1], json::parse(R"({"from":10,"below":15,"count":1})"));
  EXPECT_EQ(object.at("bins")[31], json::parse(R"({"from":160,"count":200})"));
}

// A double barrier that was answered 4 ms before its second time stamp.
TEST_F(BarrierCommands, SayThatAMaximumIsNoRoundTrip) {
  partner_.trips = someTrips();
  partner_.trips.max = uint64_t{0} - 4;
  EXPECT_EQ(
      linesOf(answer("latency")).back(),
      "ok 601 answers, longest unknown: a double barrier was answered 4 ms before its second "
      "time stamp, which the library holds for 18446744073709551612 ms and counts in the last "
      "bin");
  useFormat(/*json=*/true);
  const json object = json::parse(answer("latency"));
  EXPECT_EQ(object.at("max"), 18446744073709551612u);
  EXPECT_EQ(object.at("max_is_round_trip"), false);
}

TEST_F(BarrierCommands, SayThatThereHasBeenNone) {
  EXPECT_EQ(linesOf(answer("latency")).back(), "ok 0 answers");
}

class ShellEnd : public ShellOnDevice {};

TEST_F(ShellEnd, LeavesTheAgentNothingToTell) {
  given({"counters-start port_counters", "queue-create q 8", "digest-register mac_learn q"});
  partner_.calls.clear();
  EXPECT_THAT(sut_->finish(), IsEmpty());
  EXPECT_THAT(partner_.calls, ElementsAre("deregister mac_learn", "barrier plain",
                                          "stop port_counters", "barrier plain", "destroy q"));
}

TEST_F(ShellEnd, AsksNothingWhereNothingWasStarted) {
  given({"barrier"});
  partner_.calls.clear();
  EXPECT_THAT(sut_->finish(), IsEmpty());
  EXPECT_THAT(partner_.calls, IsEmpty());
}

// An agent that has not taken up the start would stop over counters that have gone.
TEST_F(ShellEnd, LeavesCountersThatTheAgentMayNotKnowYet) {
  given({"counters-start port_counters"});
  partner_.answers = false;
  partner_.calls.clear();
  EXPECT_THAT(sut_->finish(), ElementsAre(HasSubstr("does not answer")));
  EXPECT_THAT(partner_.calls, ElementsAre("barrier plain"));
}

TEST_F(ShellEnd, SaysWhatIsLostWithAQueue) {
  given({"queue-create q 8"});
  for (int i = 0; i < 3; ++i) partner_.notify("q", PartnerIdleNotify{});
  EXPECT_THAT(sut_->finish(), ElementsAre("queue 'q' was not drained, notifications in it: 3"));
  EXPECT_EQ(partner_.live_records, 0);
}

}  // namespace
}  // namespace jexapps
