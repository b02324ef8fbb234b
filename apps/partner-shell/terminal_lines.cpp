#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "input.h"

namespace jexapps {
namespace {

constexpr char kPrompt[] = "partner-shell> ";
constexpr int kHistoryLines = 1000;

// The line editor calls plain functions; what they share with the object stands here.
struct EditorState {
  TerminalLines::Complete complete;
  std::vector<std::string> candidates;  // of the completion that is under way
  std::optional<std::string> line;
  bool ended = false;
};

EditorState& state() {
  static EditorState editor;
  return editor;
}

std::string historyPath() {
  if (const char* directory = std::getenv("XDG_STATE_HOME")) {
    return std::string(directory) + "/partner_shell_history";
  }
  const char* home = std::getenv("HOME");
  return home == nullptr ? "" : std::string(home) + "/.partner_shell_history";
}

void onLine(char* text) {
  rl_callback_handler_remove();  // no prompt while the command writes
  if (text == nullptr) {
    state().ended = true;
    return;
  }
  if (*text != '\0') add_history(text);
  state().line = text;
  std::free(text);
}

// Gives the editor one candidate after the other.
char* candidate(const char*, int state_number) {
  static size_t next;
  if (state_number == 0) next = 0;
  const std::vector<std::string>& words = state().candidates;
  if (next == words.size()) return nullptr;
  const std::string& word = words[next++];
  if (word.back() == '=') rl_completion_append_character = '\0';  // a value follows at once
  return strdup(word.c_str());
}

char** completeWord(const char* text, int, int) {
  Shell::Completions found = state().complete(std::string_view(rl_line_buffer).substr(0, rl_point));
  rl_completion_append_character = ' ';
  rl_attempted_completion_over = found.files ? 0 : 1;  // 0: the editor goes on with files
  state().candidates = std::move(found.words);
  return rl_completion_matches(text, candidate);
}

// As the shell of a system does it: the line stays on the screen, and a new one begins.
void dropLine() {
  rl_callback_sigcleanup();
  rl_echo_signal_char(SIGINT);
  rl_crlf();
  rl_free_line_state();
  rl_callback_handler_remove();
  rl_callback_handler_install(kPrompt, onLine);
}

}  // namespace

TerminalLines::TerminalLines(StopSignal& stop, FILE* screen, Complete complete) : stop_(stop) {
  state().complete = std::move(complete);
  rl_readline_name = "partner-shell";
  rl_outstream = screen;
  rl_attempted_completion_function = completeWord;
  rl_completer_word_break_characters = " \t";
  // The editor waits for the keys that answer its questions where no signal is seen.
  rl_completion_query_items = -1;
  rl_variable_bind("page-completions", "off");
  using_history();
  stifle_history(kHistoryLines);
  if (const std::string path = historyPath(); !path.empty()) read_history(path.c_str());
}

TerminalLines::~TerminalLines() {
  if (const std::string path = historyPath(); !path.empty()) write_history(path.c_str());
}

LineSource::Read TerminalLines::next(std::string* line) {
  state().line.reset();
  stop_.clearInterrupts();
  rl_callback_handler_install(kPrompt, onLine);
  while (!state().line && !state().ended) {
    switch (stop_.wait(STDIN_FILENO)) {
      case StopSignal::Ready::kInterrupt:
        stop_.clearInterrupts();
        dropLine();
        break;
      case StopSignal::Ready::kEnd:
        rl_callback_handler_remove();
        rl_crlf();
        return Read::kStopped;
      default:
        rl_callback_read_char();
    }
  }
  if (state().ended) {
    rl_crlf();
    return Read::kEnd;
  }
  *line = *state().line;
  return Read::kLine;
}

}  // namespace jexapps
