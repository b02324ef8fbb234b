// How lines, commands and input of partner-shell end: on a terminal, in a pipe, from a file.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "endtoend/terminal.h"
#include "support/child.h"
#include "support/wait_until.h"

namespace {

using jextest::Child;
using jextest::finish;
using jextest::Finished;
using jextest::pathOf;
using jextest::startSwitch;
using jextest::Terminal;
using jextest::waitUntil;
using jextest::withProgram;
using jextest::Words;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kRouterMember =
    "member-add nexthops member=1 -> set_nexthop port=1 dmac=1 smac=2";
constexpr const char* kReadyLine = "partner-shell: ready";

std::string writtenTo(const std::string& name, const std::string& content) {
  std::ofstream(pathOf(name)) << content;
  return pathOf(name);
}

std::string pipeAt(const std::string& name) {
  EXPECT_EQ(mkfifo(pathOf(name).c_str(), 0600), 0);
  return pathOf(name);
}

/// Waits until somebody reads from the pipe, and keeps it open.
int writeEndOf(const std::string& path) {
  int fd = -1;
  EXPECT_TRUE(waitUntil([&] { return (fd = open(path.c_str(), O_WRONLY | O_NONBLOCK)) >= 0; }));
  return fd;
}

// ---- on a terminal

class ShellOnATerminal : public testing::Test {
 protected:
  void SetUp() override {
    mkdir(pathOf("home").c_str(), 0700);
    sut_ = std::make_unique<Terminal>(JEX_PARTNER_SHELL, withProgram("router", {}),
                                      Child::Environment{{"TERM", "xterm"},
                                                         {"HOME", pathOf("home")},
                                                         {"XDG_STATE_HOME", Child::unset},
                                                         {"INPUTRC", "/dev/null"}});
    awaitPrompt();
  }

  void await(const std::string& text) {
    ASSERT_TRUE(sut_->awaitText(text, &screen_)) << text << " in: " << screen_;
  }
  void awaitPrompt() { await("partner-shell> "); }
  void expect(const std::string& line, const std::string& answer) {
    sut_->type(line + "\r");
    await(answer);
    awaitPrompt();
  }
  void expectEnd() {
    const jextest::Exit exit = sut_->waitForExit();
    EXPECT_EQ(exit.signal, 0);
    EXPECT_EQ(exit.code, 0);
    EXPECT_TRUE(sut_->isCooked());
  }

  static constexpr const char* kInterrupt = "\x03";
  const std::unique_ptr<Child> agent_ = startSwitch("router");
  std::unique_ptr<Terminal> sut_;
  std::string screen_;
};

TEST_F(ShellOnATerminal, DropsTheLineAtCtrlC) {
  sut_->type("count nowhe");
  await("count nowhe");
  sut_->type(kInterrupt);
  await("^C");
  awaitPrompt();
  expect("count acl", "ok 0 entries");
  EXPECT_THAT(screen_, Not(HasSubstr("nowhe")));
  sut_->type("exit\r");
  expectEnd();
}

// A pipe into which nobody writes: the load waits until it is interrupted.
TEST_F(ShellOnATerminal, InterruptsALoadAtCtrlCAndGoesOn) {
  expect(kRouterMember, "ok handle 1");
  const std::string path = pipeAt("routes");
  sut_->type("load-routes ipv4_lpm " + path + "\r");
  const int writer = writeEndOf(path);
  sut_->type(kInterrupt);
  await("error: interrupted; loaded 0 routes");
  awaitPrompt();
  close(writer);
  expect("count ipv4_lpm", "ok 0 entries");
}

// Nobody reads the terminal while it is dumped: the dump is under way when Ctrl-C comes.
TEST_F(ShellOnATerminal, InterruptsADumpAtCtrlCAndGoesOn) {
  constexpr int kRoutes = 20000;
  std::string routes;
  for (int i = 0; i < kRoutes; ++i) {
    routes += "10." + std::to_string(i >> 8) + "." + std::to_string(i & 255) + ".0/24\n";
  }
  expect(kRouterMember, "ok handle 1");
  expect("load-routes ipv4_lpm " + writtenTo("many.txt", routes), "ok loaded 20000 routes");
  sut_->type("dump ipv4_lpm\r");
  await("ipv4.dst=10.0.3.0/24");
  sut_->type(kInterrupt);
  await("error: interrupted");
  EXPECT_THAT(screen_, Not(HasSubstr("ok 20000 entries")));
  awaitPrompt();
  expect("count ipv4_lpm", "ok 20000 entries");
}

TEST_F(ShellOnATerminal, CompletesNoFilesButWhereAFileIsNamed) {
  expect("dump /dev/nul\t", "no table '/dev/nul'");
  sut_->type("load-routes ipv4_lpm /dev/nul\t");
  await("/dev/null");
  sut_->type(kInterrupt);
  awaitPrompt();
  expect("member-add nexthops mem\t1 -> set_n\tport=1 dm\t1 sm\t2", "ok handle 1");
  expect("add ipv4_lpm ipv4.dst=10.0.0.0/8 -> me\t1", "ok handle 1");
}

TEST_F(ShellOnATerminal, EndsWithStatusZeroThoughACommandFailed) {
  expect("fly", "error: unknown command 'fly'");
  sut_->type("quit\r");
  expectEnd();
}

TEST(ShellOnATerminalAsJson, ShowsPromptsOnStandardErrorOnly) {
  const auto agent = startSwitch("router");
  const std::string results = pathOf("results");
  Terminal sut("/bin/sh",
               {"-c", "exec \"$@\" > " + results, "sh", JEX_PARTNER_SHELL, "--json", "--program",
                withProgram("router")[1]},
               {{"TERM", "xterm"}, {"HOME", pathOf("")}, {"INPUTRC", "/dev/null"}});
  std::string screen;
  ASSERT_TRUE(sut.awaitText(kReadyLine, &screen)) << screen;
  ASSERT_TRUE(sut.awaitText("partner-shell> ", &screen)) << screen;
  sut.type("count acl\r");
  ASSERT_TRUE(sut.awaitText("partner-shell> ", &screen)) << screen;
  sut.type("quit\r");
  EXPECT_EQ(sut.waitForExit().code, 0);
  std::ifstream file(results);
  const std::string all{std::istreambuf_iterator<char>(file), {}};
  EXPECT_EQ(all, "{\"ok\":true,\"entries\":0}\n");
}

// ---- without one

class ShellInAPipe : public testing::Test {
 protected:
  Child start(const Words& arguments, const Words& lines) {
    Child shell(JEX_PARTNER_SHELL, withProgram("router", arguments));
    for (const std::string& line : lines) shell.say(line);
    return shell;
  }
  Finished run(const Words& arguments, const Words& lines) {
    Child shell = start(arguments, lines);
    shell.closeInput();
    return finish(std::move(shell));
  }

  const std::unique_ptr<Child> agent_ = startSwitch("router");
};

TEST_F(ShellInAPipe, EndsWithStatusOneIfACommandFailed) {
  const Finished sut = run({}, {"count nowhere", "count acl"});
  EXPECT_TRUE(sut.endedWith(1)) << sut.error;
  EXPECT_THAT(sut.output, ElementsAre(kReadyLine, StartsWith("error: "), "ok 0 entries"));
  EXPECT_TRUE(run({}, {"count acl", "exit", "fly"}).endedWith(0));
}

TEST_F(ShellInAPipe, StopsAtTheFirstErrorIfAskedTo) {
  const Finished sut = run({"--stop-on-error"}, {"count acl", "count nowhere", "count acl"});
  EXPECT_TRUE(sut.endedWith(1)) << sut.error;
  EXPECT_THAT(sut.output, ElementsAre(kReadyLine, "ok 0 entries", StartsWith("error: ")));
  const std::string script = writtenTo("script", "count nowhere\ncount acl\n");
  const Finished scripted = run({"--stop-on-error", "--script", script}, {});
  EXPECT_TRUE(scripted.endedWith(1)) << scripted.error;
  EXPECT_THAT(scripted.output, ElementsAre(kReadyLine, StartsWith("error: line 1: ")));
}

TEST_F(ShellInAPipe, PrintsNothingButObjectsAsJson) {
  const Finished sut = run({"--json"}, {"tables", "help", "fly", "dump acl"});
  ASSERT_EQ(sut.output.size(), 4u);
  for (const std::string& line : sut.output) {
    EXPECT_TRUE(json::parse(line, nullptr, false).is_object()) << line;
  }
  EXPECT_THAT(sut.error, HasSubstr("partner-shell: ready\n"));
}

TEST_F(ShellInAPipe, EndsAnEndlessLoadAtEitherSignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const std::string path = pipeAt("routes" + std::to_string(signal));
    Child shell = start({}, {"load-routes ipv4_lpm " + path + " nexthops=1"});
    const int writer = writeEndOf(path);
    shell.signal(signal);
    const Finished sut = finish(std::move(shell));
    close(writer);
    EXPECT_TRUE(sut.endedWith(0)) << sut.error;
    ASSERT_EQ(sut.output.size(), 2u);
    EXPECT_THAT(sut.output[1], StartsWith("error: interrupted; loaded 0 routes"));
  }
}

TEST_F(ShellInAPipe, RefusesALineWithoutEnd) {
  const Finished sut = run({}, {"load-routes ipv4_lpm /dev/zero nexthops=1"});
  EXPECT_TRUE(sut.endedWith(1)) << sut.error;
  ASSERT_EQ(sut.output.size(), 2u);
  EXPECT_THAT(sut.output[1], StartsWith("error: /dev/zero: line 1 is longer than 65536 bytes; "));
  const Finished script = run({"--script", "/dev/zero"}, {});
  EXPECT_TRUE(script.endedWith(1));
  EXPECT_THAT(script.error,
              HasSubstr("partner-shell: /dev/zero: a line is longer than 1048576 bytes\n"));
}

TEST_F(ShellInAPipe, SaysThatAScriptCannotBeRead) {
  const Finished sut = run({"--script", "/"}, {});
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_THAT(sut.error, HasSubstr("partner-shell: /: Is a directory\n"));
}

}  // namespace
