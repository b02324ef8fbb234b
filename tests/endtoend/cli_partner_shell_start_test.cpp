// What partner-shell finds around it: the agent's socket, shared memory, other partners, closed
// descriptors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/helper.h"
#include "support/raw_socket.h"
#include "support/switch_device.h"
#include "support/wait_until.h"

namespace {

using jextest::Child;
using jextest::finish;
using jextest::Finished;
using jextest::isOneLine;
using jextest::pathOf;
using jextest::programFile;
using jextest::ShellProcess;
using jextest::startSwitch;
using jextest::waitUntil;
using jextest::withProgram;
using jextest::Words;
using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kAgentPlace = "/tmp/Partner0";
constexpr int kNoRight = 77;  // status of a helper that may not do what it is for

[[noreturn]] void becomeShell(const std::string& program) {
  execl(JEX_PARTNER_SHELL, JEX_PARTNER_SHELL, "--program", programFile(program).c_str(), nullptr);
  _exit(127);
}

/// A shell for which permissions count, whoever it is.
JEX_HELPER(shell_without_privilege) {
  prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
  prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
  becomeShell("router");
}

JEX_HELPER(shell_with_read_only_tmp) {
  if (unshare(CLONE_NEWNS) != 0) return kNoRight;
  mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  mount("/tmp", "/tmp", nullptr, MS_BIND, nullptr);
  if (mount(nullptr, "/tmp", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) {
    return kNoRight;
  }
  becomeShell("router");
}

/// Both programs, and less shared memory than the counters of one of them need.
JEX_HELPER(shell_with_little_shared_memory) {
  if (unshare(CLONE_NEWNS) != 0) return kNoRight;
  mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  if (mount("tmpfs", "/dev/shm", "tmpfs", 0, "size=512k") != 0) return kNoRight;
  execl(JEX_PARTNER_SHELL, JEX_PARTNER_SHELL, "--program", programFile("l2_switch").c_str(),
        "--program", programFile("router").c_str(), nullptr);
  _exit(127);
}

/// A socket at the agent's place that listens as long as it lives, and answers nobody.
class SilentSocket {
 public:
  SilentSocket() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, kAgentPlace);
    unlink(kAgentPlace);  // of an agent of another test of this process
    EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(fd_, 16), 0);
  }
  ~SilentSocket() {
    close(fd_);
    unlink(kAgentPlace);
  }
  SilentSocket(const SilentSocket&) = delete;
  SilentSocket& operator=(const SilentSocket&) = delete;
  void stopListening() const { EXPECT_EQ(shutdown(fd_, SHUT_RDWR), 0); }

 private:
  int fd_;
};

std::string owner() { return getpwuid(geteuid())->pw_name; }

/// `sut` says once why it waits, and goes on waiting.
void expectWaiting(Child sut, const std::string& reason) {
  const std::string line = "partner-shell: waiting for a slice agent: " + reason + "\n";
  EXPECT_TRUE(waitUntil([&] { return sut.standardError() == line; })) << sut.standardError();
  EXPECT_FALSE(sut.ended());
  sut.signal(SIGTERM);
  EXPECT_TRUE(finish(std::move(sut)).endedWith(0));
}

Child shell() { return Child(JEX_PARTNER_SHELL, withProgram("router")); }

TEST(PartnerShellWaits, ForAnAgentThatItMayNotConnectTo) {
  const SilentSocket agent;
  ASSERT_EQ(chmod(kAgentPlace, 0), 0);
  expectWaiting(Child::helper("shell_without_privilege"),
                "/tmp/Partner0: Permission denied (owner " + owner() + ", mode 0000)");
}

TEST(PartnerShellWaits, ForAnAgentWhoseSocketNobodyHasMade) {
  expectWaiting(shell(), "nobody has made /tmp/Partner0");
}

TEST(PartnerShellWaits, ForAnAgentThatLeftItsSocketBehind) {
  const SilentSocket agent;
  agent.stopListening();
  expectWaiting(shell(), "nobody accepts on /tmp/Partner0");
}

TEST(PartnerShellWaits, ForAnAgentThatDoesNotAnswer) {
  const SilentSocket agent;
  expectWaiting(shell(), "somebody accepts on /tmp/Partner0 and does not answer");
}

void expectNoStart(Child sut, const std::string& reason) {
  const Finished end = finish(std::move(sut));
  EXPECT_TRUE(end.endedWith(1)) << end.exit.code;
  EXPECT_EQ(end.error, "partner-shell: " + reason + "\n");
  EXPECT_THAT(end.output, IsEmpty());
}

TEST(PartnerShellCannotStart, WhereADirectoryStandsInThePlaceOfTheSocket) {
  ASSERT_EQ(mkdir(kAgentPlace, 0700), 0);
  expectNoStart(shell(),
                "/tmp/Partner0 is a directory; a slice agent has its socket there: "
                "remove it");
  rmdir(kAgentPlace);
}

TEST(PartnerShellCannotStart, WhereAFileStandsInThePlaceOfTheSocket) {
  std::ofstream(kAgentPlace) << "mine";
  expectNoStart(shell(),
                "/tmp/Partner0 is no socket; a slice agent has its socket there: remove "
                "it");
  unlink(kAgentPlace);
}

TEST(PartnerShellCannotStart, WhereNothingCanBeWrittenToTmp) {
  Finished end = finish(Child::helper("shell_with_read_only_tmp"));
  if (end.endedWith(kNoRight)) GTEST_SKIP() << "no right to mount";
  EXPECT_TRUE(end.endedWith(1));
  EXPECT_EQ(end.error,
            "partner-shell: /tmp: Read-only file system; a partner makes its socket there\n");
}

// The library would touch memory that is not there: the process would end by SIGBUS.
TEST(PartnerShellCounters, AreRefusedWhereSharedMemoryHasNoRoomForThem) {
  jextest::RawAgent agent;
  Child sut = Child::helper("shell_with_little_shared_memory");
  const std::string ready = sut.readLine();
  if (ready == "<end>" && finish(std::move(sut)).endedWith(kNoRight)) {
    GTEST_SKIP() << "no right to mount";
  }
  ASSERT_EQ(ready, "partner-shell: ready");
  EXPECT_EQ(sut.ask("counters-start route_counters"),
            "error: route_counters: its counters need 1088 KiB of shared memory, and /dev/shm has "
            "512 KiB free");
  EXPECT_EQ(sut.ask("counters-start port_counters"), "ok 512 entries");
  EXPECT_EQ(sut.ask("counters-read port_counters 511"), "#511 packets=0 bytes=0");
}

TEST(PartnerShellStarts, WithAClosedStandardInputAsWithAnEmptyOne) {
  const auto agent = startSwitch("router");
  Words words{"-c", "exec \"$@\" <&-", "sh", JEX_PARTNER_SHELL};
  for (const std::string& word : withProgram("router")) words.push_back(word);
  const Finished sut = finish(Child("/bin/sh", words));
  EXPECT_TRUE(sut.endedWith(0)) << sut.error;
  EXPECT_EQ(sut.output, Words{"partner-shell: ready"});
}

TEST(PartnerShellStarts, WithOneLineAboutTheTablesThatTheLibraryIgnores) {
  const jextest::RawAgent agent;
  const Finished with = [] {
    Child sut(JEX_PARTNER_SHELL, withProgram("router"));
    sut.closeInput();
    return finish(std::move(sut));
  }();
  const std::string line =
      "partner-shell: \"Ignoring Table type: 5\" is said of counter tables (route_counters, "
      "acl_counters): nothing is written to them, counters-start starts them\n";
  EXPECT_EQ(with.error, "Ignoring Table type: 5\nIgnoring Table type: 5\n" + line);
}

// ---- digests of several partners

class PartnerShellDigests : public testing::Test {
 protected:
  void start(const Words& agent_arguments = {}) {
    agent_ = startSwitch("l2_switch", agent_arguments);
  }
  static void registerFirst(ShellProcess& first) {
    first.ask("queue-create q 16");
    first.ask("digest-register mac_learn q");
    first.ask("barrier");  // the agent has heard of it
  }

  std::unique_ptr<Child> agent_;
};

TEST_F(PartnerShellDigests, AreNotTakenFromAnotherPartnerUnlessThatIsWanted) {
  start();
  ShellProcess first("l2_switch");
  registerFirst(first);
  ShellProcess second("l2_switch");
  second.ask("queue-create q 16");
  EXPECT_EQ(second.refusalOf("digest-register mac_learn q"),
            "mac_learn: another partner takes it, and only one can; with take-over=yes that one "
            "loses it");
  second.ask("digest-register mac_learn q take-over=yes");
  EXPECT_FALSE(agent_->ended());
}

TEST_F(PartnerShellDigests, AreTakenWithARemarkWhereNobodyCanBeAsked) {
  start({"--control", "off"});
  ShellProcess sut("l2_switch");
  registerFirst(sut);
  EXPECT_THAT(sut.process().standardError(),
              HasSubstr("partner-shell: the slice agent could not be asked whether another partner "
                        "takes mac_learn and loses it now: switchctl: cannot reach "
                        "127.0.0.1:50051: "));
}

}  // namespace
