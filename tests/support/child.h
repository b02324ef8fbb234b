// A child process: spoken to line by line on its standard input and output, its standard error
// kept in a file of the run directory. It never outlives its object.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace jextest {

/// How a process ended: `signal` is 0 for a normal exit with status `code`.
struct Exit {
  int code = -1;
  int signal = 0;
};

class Child {
 public:
  using Environment = std::map<std::string, std::string>;

  /// Starts helper `name` of this test binary (helper.h). `environment` is added to our own; an
  /// empty value is set as such, the value `unset` takes the variable away.
  static Child helper(const std::string& name, const std::vector<std::string>& arguments = {},
                      const Environment& environment = {});
  static const std::string unset;

  Child(const std::string& program, const std::vector<std::string>& arguments,
        const Environment& environment = {});
  Child(Child&& other) noexcept;
  Child& operator=(Child&&) = delete;
  /// Kills the process if it still runs.
  ~Child();

  pid_t pid() const { return pid_; }
  /// Name that the process prints in front of its failed assertions.
  const std::string& programName() const { return name_; }

  /// Writes `line` and an end of line to its standard input.
  void say(const std::string& line);
  void closeInput();
  /// The next line of its standard output; "<end>" if there is none, "<silence>" if it takes too
  /// long.
  std::string readLine();
  /// Says `line` and returns the line that answers it.
  std::string ask(const std::string& line);

  void signal(int number) const;
  /// Stops it (SIGSTOP), and returns when all of its threads have stopped. Goes on with SIGCONT.
  void stop();
  /// Whether it has ended; if so, waitForExit returns at once.
  bool ended();
  /// Waits for its end. A process that does not end in time is killed, and the test has failed.
  Exit waitForExit();
  /// All that it has written to standard error until now.
  std::string standardError() const;

 private:
  pid_t pid_ = -1;
  bool reaped_ = false;
  int status_ = 0;
  int input_ = -1;   // write end of its standard input
  int output_ = -1;  // read end of its standard output
  std::string pending_;
  std::string name_;
  std::string error_file_;
};

}  // namespace jextest
