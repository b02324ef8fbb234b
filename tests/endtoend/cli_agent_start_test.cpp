// slice-agent before it serves, and what ends it: files in its way, limits, signals.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nanomsg/pipeline.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "support/bytes.h"
#include "support/child.h"
#include "support/private_world.h"
#include "support/raw_socket.h"
#include "support/switch_device.h"
#include "support/wait_until.h"

namespace {

namespace fs = std::filesystem;
using jextest::Child;
using jextest::finish;
using jextest::Finished;
using jextest::isOneLine;
using jextest::ShellProcess;
using jextest::startSwitch;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::withProgram;
using jextest::Words;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Key;
using testing::Not;
using testing::StartsWith;

const fs::path kAgentFile = "/tmp/Partner0";

Finished agentThatFails(const Words& more = {}) {
  return finish(Child(JEX_SLICE_AGENT, withProgram("l2_switch", more)));
}

/// A local socket; the file stays when it is closed.
class LocalListener {
 public:
  explicit LocalListener(const fs::path& path)
      : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << path;
    EXPECT_EQ(listen(fd_, 8), 0);
  }
  ~LocalListener() { close(fd_); }
  LocalListener(const LocalListener&) = delete;
  LocalListener& operator=(const LocalListener&) = delete;

 private:
  const int fd_;
};

/// A process id that was in use and no longer is.
pid_t endedProcess() {
  const pid_t pid = fork();
  if (pid == 0) _exit(0);
  waitpid(pid, nullptr, 0);
  return pid;
}

/// The masks of blocked signals of a process's threads, by the threads' names.
std::multimap<std::string, uint64_t> blockedSignals(pid_t pid) {
  std::multimap<std::string, uint64_t> masks;
  for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    std::ifstream status(task.path() / "status");
    std::string name, word;
    while (status >> word) {
      if (word == "Name:") status >> name;
      if (word == "SigBlk:") status >> word, masks.emplace(name, std::stoull(word, nullptr, 16));
    }
  }
  return masks;
}

void expectOrderlyEnd(Child& agent) {
  const jextest::Exit exit = agent.waitForExit();
  EXPECT_EQ(exit.signal, 0);
  EXPECT_EQ(exit.code, 0);
  EXPECT_FALSE(fs::exists(kAgentFile));
}

// --- files in the way

TEST(SliceAgentStart, RefusesAFileInItsPlaceThatIsNoSocketAndLeavesItThere) {
  const auto expectRefusal = [](const std::string& kind) {
    const Finished sut = agentThatFails();
    EXPECT_TRUE(sut.endedWith(1));
    EXPECT_EQ(sut.error,
              "slice-agent: /tmp/Partner0 is " + kind + ", not a socket: move it away\n");
    EXPECT_TRUE(fs::exists(fs::symlink_status(kAgentFile)));
  };
  std::ofstream(kAgentFile) << "mine";
  expectRefusal("a regular file");
  EXPECT_EQ(fs::file_size(kAgentFile), 4u);
  fs::remove(kAgentFile);

  fs::create_directory(kAgentFile);
  expectRefusal("a directory");
  fs::remove(kAgentFile);

  const LocalListener elsewhere("/tmp/elsewhere");
  fs::create_symlink("/tmp/elsewhere", kAgentFile);
  expectRefusal("a symbolic link");
  fs::remove(kAgentFile);
  fs::remove("/tmp/elsewhere");
}

TEST(SliceAgentStart, DoesNotDeleteAFileThatTookThePlaceOfItsSocket) {
  const auto agent = startSwitch("l2_switch");
  fs::remove(kAgentFile);
  std::ofstream(kAgentFile) << "mine";
  agent->signal(SIGTERM);
  agent->waitForExit();
  EXPECT_TRUE(fs::is_regular_file(kAgentFile));
  fs::remove(kAgentFile);
}

TEST(SliceAgentStart, SaysInOneLineThatItsFolderCannotBeWritten) {
  // A mount namespace of the agent's own, whose /tmp is read-only.
  Words words{"-m", "--",           "sh", "-c", "mount -t tmpfs -o ro none /tmp && exec \"$@\"",
              "sh", JEX_SLICE_AGENT};
  const Words arguments = withProgram("l2_switch");
  words.insert(words.end(), arguments.begin(), arguments.end());
  const Finished sut = finish(Child("/usr/bin/unshare", words));
  if (sut.error.find("slice-agent") == std::string::npos) GTEST_SKIP() << sut.error;
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_EQ(sut.error, "slice-agent: cannot make a socket in /tmp: Read-only file system\n");
}

TEST(SliceAgentStart, RemovesSocketsOfPartnersThatHaveEndedAndNothingElse) {
  const std::string ended = "/tmp/Partner_" + std::to_string(endedProcess());
  const std::string own = "/tmp/Partner_" + std::to_string(getpid());
  const std::string stale = ended + "_235959";
  const Words staying{own + "_000000",        ended + "_12345", ended + "_1234567",
                      ended + "_12345x",      ended + "x_1234", "/tmp/Partner__123456",
                      "/tmp/Partner_0_123456"};
  for (const std::string& file : staying) LocalListener{file};
  LocalListener{stale};
  const LocalListener served(ended + "_111111");
  std::ofstream(ended + "_222222") << "no socket";

  Child sut(JEX_SLICE_AGENT, withProgram("l2_switch", {"--control", "off"}));
  ASSERT_THAT(sut.readLine(), StartsWith("slice-agent: ready"));
  EXPECT_FALSE(fs::exists(stale));
  EXPECT_EQ(sut.standardError(),
            "slice-agent: removed 1 sockets of partners that have ended from /tmp\n");
  for (const std::string& file : staying) EXPECT_TRUE(fs::remove(file)) << file;
  EXPECT_TRUE(fs::remove(ended + "_111111"));
  EXPECT_TRUE(fs::remove(ended + "_222222"));
}

TEST(SliceAgentStart, RefusesAControlPortThatDoesNotExist) {
  for (const char* wrong : {"99999", "65536", "-1", "http", ""}) {
    const std::string address = std::string("127.0.0.1:") + wrong;
    const Finished sut = agentThatFails({"--control", address});
    EXPECT_TRUE(sut.endedWith(2));
    EXPECT_EQ(sut.error, "slice-agent: --control: port '" + std::string(wrong) + "' in '" +
                             address +
                             "' is not a number from 0 to 65535 (see slice-agent --help)\n");
  }
  EXPECT_EQ(agentThatFails({"--control", "nowhere"}).error,
            "slice-agent: --control: 'nowhere' is not HOST:PORT (see slice-agent --help)\n");
}

// --- limits

TEST(SliceAgentStart, SaysInOneLineThatItsAddressSpaceIsTooSmall) {
  if (jextest::kSanitized) GTEST_SKIP() << "a sanitizer takes more address space than any limit";
  for (const char* kilobytes : {"60000", "100000", "200000", "400000", "800000", "1200000"}) {
    Words words{"-c", "ulimit -v " + std::string(kilobytes) + " && exec \"$@\"", "sh",
                JEX_SLICE_AGENT};
    const Words arguments = withProgram("router");
    words.insert(words.end(), arguments.begin(), arguments.end());
    const Finished sut = finish(Child("/bin/sh", words));
    EXPECT_TRUE(sut.endedWith(1)) << kilobytes << ": " << sut.exit.signal;
    EXPECT_TRUE(isOneLine(sut.error)) << sut.error;
    EXPECT_THAT(sut.error, AllOf(StartsWith("slice-agent: a limit of "), HasSubstr("ulimit -v")));
    EXPECT_THAT(sut.output, IsEmpty());
  }
}

TEST(SliceAgentStart, WarnsOfRegistrationsBeforeTheSocketsForThemAreUsedUp) {
  constexpr uint32_t kFirstPid = 1'000'000'000;
  const auto agent = startSwitch("l2_switch", {"--control", "off"});
  jextest::RawSocket requests(NN_PUSH);
  requests.connect("ipc:///tmp/Partner0");
  // A registration that comes while the agent counts may be left out until the next one.
  for (uint32_t i = 0; i < 410; ++i) {
    requests.send(jextest::registration(kFirstPid + i, "inproc://nobody" + std::to_string(i)));
  }
  ASSERT_TRUE(waitUntil([&] { return isOneLine(agent->standardError()); }));
  EXPECT_THAT(agent->standardError(), StartsWith("slice-agent: warning: 4"));
  EXPECT_THAT(agent->standardError(),
              HasSubstr(" partners have registered since the start; at about 500 the sockets for "
                        "them are used up, and the next partner's barrier stops the agent: start "
                        "agent and partners anew before\n"));
  EXPECT_FALSE(agent->ended());
}

// --- partners that come and go

TEST(SliceAgent, SendsNoHeartbeatsUnlessItIsToldTo) {
  Child sut(JEX_SLICE_AGENT, withProgram("router"));
  ASSERT_THAT(sut.readLine(), StartsWith("slice-agent: ready"));
  EXPECT_THAT(blockedSignals(sut.pid()), Not(Contains(Key("heartbeat"))));

  Child first(JEX_PARTNER_SHELL, withProgram("router"));
  ASSERT_THAT(first.readLine(), HasSubstr("ready"));
  first.say("quit");
  EXPECT_EQ(first.waitForExit().code, 0);
  Child second(JEX_PARTNER_SHELL, withProgram("router"));
  ASSERT_THAT(second.readLine(), HasSubstr("ready"));
  EXPECT_THAT(second.ask("barrier"), Not(HasSubstr("error")));
  EXPECT_THAT(switchctl({"health"}).output, ElementsAre("SERVING"));
}

TEST(SliceAgent, SendsHeartbeatsWhereItIsToldTo) {
  Child sut(JEX_SLICE_AGENT, withProgram("l2_switch", {"--heartbeat-ms", "1"}));
  ASSERT_THAT(sut.readLine(), StartsWith("slice-agent: ready"));
  EXPECT_THAT(blockedSignals(sut.pid()), Contains(Key("heartbeat")));
  jextest::RawPartner partner(1'000'000'000);
  partner.registerWithAgent();
  EXPECT_EQ(partner.receive(), (jextest::Bytes{255, 0, 0, 0}));
}

// --- signals

TEST(SliceAgentSignals, EndItWhileItStarts) {
  fs::remove(kAgentFile);  // of an agent that a former test has killed
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    // The driver takes longer than any test.
    Child sut(JEX_SLICE_AGENT, withProgram("l2_switch"),
              {{"JX_MODEL_FAULTS", "jx_drv_init:1:delay=1000000"}});
    // It has got past the command line when it blocks signals.
    ASSERT_TRUE(waitUntil([&] {
      const auto masks = blockedSignals(sut.pid());
      return std::any_of(masks.begin(), masks.end(), [](const auto& mask) {
        return (mask.second & uint64_t{1} << (SIGUSR1 - 1)) != 0;
      });
    }));
    sut.signal(number);
    expectOrderlyEnd(sut);
    EXPECT_EQ(sut.standardError(), "");
  }
}

TEST(SliceAgentSignals, ThatEndItAreIntTermAndHup) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const auto sut = startSwitch("l2_switch");
    sut->signal(number);
    expectOrderlyEnd(*sut);
  }
}

TEST(SliceAgentSignals, LeaveItAloneUnlessTheyAreFatalOrEndIt) {
  // Started as by nohup.
  Words words{"-c", "trap '' HUP; exec \"$@\"", "sh", JEX_SLICE_AGENT};
  const Words arguments = withProgram("l2_switch");
  words.insert(words.end(), arguments.begin(), arguments.end());
  Child sut("/bin/sh", words);
  ASSERT_THAT(sut.readLine(), StartsWith("slice-agent: ready"));
  ShellProcess partner("l2_switch");
  for (const int number : {SIGHUP, SIGUSR1, SIGUSR2, SIGPIPE, SIGALRM, SIGCHLD, SIGCONT, SIGURG,
                           SIGVTALRM, SIGPROF, SIGWINCH, SIGIO, SIGPWR, SIGSTKFLT, SIGRTMIN}) {
    sut.signal(number);
    partner.ask("barrier");
  }
  sut.stop();
  sut.signal(SIGCONT);
  partner.ask("barrier");
  EXPECT_FALSE(sut.ended());
}

TEST(SliceAgentSignals, ReachTheThreadOfTheLoopOnlyIfTheyAreFatal) {
  const auto sut = startSwitch("l2_switch");
  const auto masks = blockedSignals(sut->pid());
  const auto loop = masks.equal_range("agent-loop");
  ASSERT_NE(loop.first, loop.second);
  for (auto thread = loop.first; thread != loop.second; ++thread) {
    for (int number = 1; number < SIGRTMAX; ++number) {
      const bool cannot_be_blocked = number == SIGKILL || number == SIGSTOP;
      const bool of_the_c_library = number >= 32 && number < SIGRTMIN;
      if (cannot_be_blocked || of_the_c_library) continue;
      const bool fatal =
          testing::Matches(testing::AnyOf(SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT,
                                          SIGQUIT, SIGXCPU, SIGXFSZ))(number);
      const bool blocked = (thread->second & uint64_t{1} << (number - 1)) != 0;
      EXPECT_TRUE(blocked || fatal) << strsignal(number);
    }
  }
}

}  // namespace
