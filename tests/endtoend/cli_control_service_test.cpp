// The control service of an agent as switchctl shows it, beyond tables and packets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/wait_until.h"

namespace {

using jextest::Child;
using jextest::ShellProcess;
using jextest::startSwitch;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::Words;
using nlohmann::json;
using testing::ElementsAre;

class ControlService : public testing::Test {
 protected:
  const std::unique_ptr<Child> agent_ = startSwitch("l2_switch");
};

/// Waits until the agent's only digest is `armed`.
bool becomesArmed(bool armed) {
  return waitUntil([&] {
    const json digests = jextest::answerOf({"digests"});
    return digests.size() == 1 && digests[0].at("armed") == armed;
  });
}

TEST_F(ControlService, ListsDigestsByProgramAndId) {
  EXPECT_THAT(switchctl({"digests"}).output,
              ElementsAre("DEVICE  PROGRAM    DIGEST     ID     ARMED",
                          "0       l2_switch  mac_learn  98305  no"));
  EXPECT_THAT(switchctl({"digests", "--json", "--program", "l2_switch", "--device", "0"}).output,
              ElementsAre(R"([{"device":0,"program":"l2_switch","name":"mac_learn",)"
                          R"("id":98305,"armed":false}])"));
  EXPECT_EQ(switchctl({"digests", "--program", "router"}).error,
            "switchctl: 127.0.0.1:50051: there is no program 'router'\n");
}

TEST_F(ControlService, SaysThatADigestIsArmedUntilItIsDisarmed) {
  ShellProcess partner("l2_switch");
  partner.ask("queue-create q 16");
  EXPECT_TRUE(becomesArmed(false));
  partner.ask("digest-register mac_learn q");
  EXPECT_TRUE(becomesArmed(true));
  partner.ask("digest-deregister mac_learn");
  EXPECT_TRUE(becomesArmed(false));
}

// --- bounds, and names that are no text

/// Starts `count` times what `arguments` say, and waits until each has begun.
std::vector<std::unique_ptr<Child>> startAll(int count, const Words& arguments,
                                             const std::string& first_line) {
  std::vector<std::unique_ptr<Child>> running;
  for (int i = 0; i < count; ++i) {
    running.push_back(std::make_unique<Child>(JEX_SWITCHCTL, arguments));
    EXPECT_EQ(running.back()->readLine(), first_line) << running.back()->standardError();
  }
  return running;
}

void expectOneTooMany(const Words& arguments, const std::string& refusal) {
  const jextest::Finished sut = switchctl(arguments);
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_EQ(sut.error, "switchctl: 127.0.0.1:50051: " + refusal +
                           " run already, which is the most that are served at a time: end one of "
                           "them first\n");
}

TEST_F(ControlService, ServesNoMoreThan32WatchesAtATime) {
  auto running = startAll(32, {"watch"}, "watching device 0");
  expectOneTooMany({"watch"}, "32 watches");
  running.pop_back();
  EXPECT_TRUE(waitUntil([] {
    Child next(JEX_SWITCHCTL, {"watch"});
    return next.readLine() == "watching device 0";
  }));
}

TEST_F(ControlService, ServesNoMoreThan16CapturesAtATime) {
  ASSERT_TRUE(switchctl({"port-add", "2=pcap:," + jextest::pathOf("out.pcap")}).endedWith(0));
  const Words arguments{"capture", "--port", "2", "/dev/null"};
  auto running = startAll(16, arguments, "capturing at port 2");
  expectOneTooMany(arguments, "16 captures");
  running.pop_back();
  EXPECT_TRUE(waitUntil([&] {
    Child next(JEX_SWITCHCTL, arguments);
    return next.readLine() == "capturing at port 2";
  }));
}

TEST_F(ControlService, ShowsPortsWhoseFilesHaveNamesThatAreNoUtf8) {
  const std::string spec = "2=pcap:," + jextest::pathOf("out\xff.pcap");
  const jextest::Finished added = switchctl({"port-add", spec});
  EXPECT_TRUE(added.endedWith(0)) << added.error;
  EXPECT_THAT(added.output, ElementsAre("port 2 attached (" + spec + ")"));
  const jextest::Finished text = switchctl({"ports"});
  EXPECT_TRUE(text.endedWith(0)) << text.error;
  ASSERT_GE(text.output.size(), 2u);
  EXPECT_THAT(text.output[1], testing::EndsWith(spec));
  EXPECT_THAT(jextest::portOf(2).at("spec").get<std::string>(),
              testing::EndsWith("out\xef\xbf\xbd.pcap"));
}

TEST_F(ControlService, IsNotAskedForNamesThatAreNoUtf8) {
  for (const Words& wrong : {Words{"count", "\xff"}, Words{"entries", "\xff"},
                             Words{"tables", "--program", "l2_\xff"}}) {
    const jextest::Finished sut = switchctl(wrong);
    EXPECT_TRUE(sut.endedWith(2));
    EXPECT_TRUE(jextest::isOneLine(sut.error)) << sut.error;
    EXPECT_THAT(sut.error, testing::HasSubstr("a name that is not UTF-8"));
  }
}

TEST(SwitchctlTarget, IsRefusedIfItsPortDoesNotExist) {
  const jextest::Finished sut = switchctl({"health", "--target", "127.0.0.1:99999"});
  EXPECT_TRUE(sut.endedWith(2));
  EXPECT_EQ(
      sut.error,
      "switchctl: --target: port '99999' in '127.0.0.1:99999' is not a number from 0 to 65535 "
      "(see switchctl --help)\n");
}

// --- health

/// Stops one thread of another process for as long as it lives.
class StoppedThread {
 public:
  explicit StoppedThread(pid_t thread) : thread_(thread) {
    stopped_ = ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) == 0 &&
               ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) == 0 &&
               waitpid(thread, nullptr, __WALL) == thread;
  }
  ~StoppedThread() {
    if (stopped_) ptrace(PTRACE_DETACH, thread_, nullptr, nullptr);
  }
  StoppedThread(const StoppedThread&) = delete;
  StoppedThread& operator=(const StoppedThread&) = delete;

  bool stopped() const { return stopped_; }

 private:
  const pid_t thread_;
  bool stopped_ = false;
};

/// The first thread of this name, which later ones that it has started may have too.
pid_t threadOf(const Child& process, const std::string& name) {
  pid_t first = 0;
  const std::string tasks = "/proc/" + std::to_string(process.pid()) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    std::string line;
    std::getline(std::ifstream(task.path() / "comm"), line);
    const pid_t thread = std::stoi(task.path().filename());
    if (line == name && (first == 0 || thread < first)) first = thread;
  }
  return first;
}

bool becomesHealthy(const std::string& status) {
  return waitUntil([&] { return switchctl({"health"}).output == Words{status}; });
}

TEST_F(ControlService, IsNotServingWhileTheAgentsLoopStandsStill) {
  EXPECT_EQ(switchctl({"health"}).output, Words{"SERVING"});
  {
    const StoppedThread loop(threadOf(*agent_, "agent-loop"));
    if (!loop.stopped()) GTEST_SKIP() << "threads of other processes may not be stopped here";
    EXPECT_TRUE(becomesHealthy("NOT_SERVING"));
    EXPECT_TRUE(switchctl({"health"}).endedWith(1));
  }
  EXPECT_TRUE(becomesHealthy("SERVING"));
}

TEST(ControlServiceOfASlowDevice, IsNotServingWhileTheDeviceHoldsTheLoopUp) {
  Child agent(JEX_SLICE_AGENT, jextest::withProgram("l2_switch"),
              {{"JX_MODEL_FAULTS", "pipe_process_plcmt_info:1:delay=1000000"}});
  ASSERT_THAT(agent.readLine(), testing::StartsWith("slice-agent: ready"));
  ShellProcess partner("l2_switch");
  partner.ask("add dmac ethernet.dst=02:00:00:00:00:01 -> forward port=2");
  EXPECT_TRUE(becomesHealthy("NOT_SERVING"));
}

TEST_F(ControlService, IsServingAfterTheAgentWasStoppedAndContinued) {
  agent_->stop();
  agent_->signal(SIGCONT);
  ShellProcess partner("l2_switch");
  partner.ask("barrier");
  EXPECT_EQ(switchctl({"health"}).output, Words{"SERVING"});
}

}  // namespace
