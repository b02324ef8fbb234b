#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>

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

char* candidate(const char*, int state_number) {
  static std::vector<std::string> candidates;
  static size_t next;
  if (state_number == 0) {
    candidates = state().complete(std::string_view(rl_line_buffer).substr(0, rl_point));
    next = 0;
  }
  if (next == candidates.size()) return nullptr;
  const std::string& word = candidates[next++];
  if (word.back() == '=') rl_completion_append_character = '\0';  // a value follows at once
  return strdup(word.c_str());
}

// Where nothing of ours fits, the editor goes on with names of files.
char** completeWord(const char* text, int, int) {
  rl_completion_append_character = ' ';
  return rl_completion_matches(text, candidate);
}

}  // namespace

TerminalLines::TerminalLines(const StopSignal& stop, Complete complete) : stop_(stop) {
  state().complete = std::move(complete);
  rl_readline_name = "partner-shell";
  rl_attempted_completion_function = completeWord;
  rl_completer_word_break_characters = " \t";
  using_history();
  stifle_history(kHistoryLines);
  if (const std::string path = historyPath(); !path.empty()) read_history(path.c_str());
}

TerminalLines::~TerminalLines() {
  if (const std::string path = historyPath(); !path.empty()) write_history(path.c_str());
}

LineSource::Read TerminalLines::next(std::string* line) {
  state().line.reset();
  rl_callback_handler_install(kPrompt, onLine);
  while (!state().line && !state().ended) {
    if (!stop_.waitReadable(STDIN_FILENO)) {
      rl_callback_handler_remove();
      rl_crlf();
      return Read::kStopped;
    }
    rl_callback_read_char();
  }
  if (state().ended) {
    rl_crlf();
    return Read::kEnd;
  }
  *line = *state().line;
  return Read::kLine;
}

}  // namespace jexapps
