// See prompt.h.
#include "prompt.h"

#include <histedit.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>

#include "interrupt.h"

namespace tool {

struct Prompt::Parts {
  EditLine* line = nullptr;
  History* history = nullptr;
  HistEvent event = {};
  std::string historyFile;
  std::string prompt;
  Completions completions;
};

namespace {

// libedit hands out only the pointer that EL_CLIENTDATA was given.
Prompt::Parts& partsOf(EditLine* line) {
  void* parts = nullptr;
  el_get(line, EL_CLIENTDATA, &parts);
  return *static_cast<Prompt::Parts*>(parts);
}

const char* promptOf(EditLine* line) { return partsOf(line).prompt.c_str(); }

constexpr wchar_t endOfInput = 4;  // Ctrl-D

// libedit's own would read again behind an interrupt.
int readCharacter(EditLine* /*line*/, wchar_t* character) {
  std::mbstate_t state = {};
  while (true) {
    char byte = 0;
    if (!waitForInput(STDIN_FILENO)) return -1;
    const ssize_t count = read(STDIN_FILENO, &byte, 1);
    if (count <= 0) return static_cast<int>(count);
    const std::size_t size = std::mbrtowc(character, &byte, 1, &state);
    if (size == static_cast<std::size_t>(-1)) state = {};
    // An end of input that was typed before libedit made the terminal its own comes as a zero.
    if (size == 0) *character = endOfInput;
    if (size <= 1) return 1;
  }
}

void list(const std::vector<std::string>& words) {
  std::fputc('\n', stdout);
  for (const std::string& word : words) std::printf("%s  ", word.c_str());
  std::fputc('\n', stdout);
}

std::string commonPrefix(const std::vector<std::string>& words) {
  std::string prefix = words.front();
  for (const std::string& word : words) {
    const auto end = std::mismatch(prefix.begin(), prefix.end(), word.begin(), word.end()).first;
    prefix.erase(end, prefix.end());
  }
  return prefix;
}

unsigned char complete(EditLine* line, wint_t /*key*/) {
  const LineInfo* const info = el_line(line);
  const std::string_view before(info->buffer,
                                static_cast<std::size_t>(info->cursor - info->buffer));
  const std::vector<std::string> words = partsOf(line).completions(before);
  if (words.empty()) return CC_ERROR;
  const std::size_t typed = lastWord(before).size();
  std::string added = words.size() == 1 ? words.front() + " " : commonPrefix(words);
  if (added.size() <= typed) {
    list(words);
    return CC_REDISPLAY;
  }
  return el_insertstr(line, added.c_str() + typed) == 0 ? CC_REFRESH : CC_ERROR;
}

}  // namespace

std::string_view lastWord(std::string_view line) {
  const std::size_t end = line.find_last_of(" \t\n,(=<>!.");
  // A dot at the beginning is of a command of the shell's own.
  if (end == std::string_view::npos || (end == 0 && line[0] == '.')) return line;
  return line.substr(end + 1);
}

Prompt::Prompt(std::string historyFile, Completions completions)
    : parts_(std::make_unique<Parts>()) {
  Parts& parts = *parts_;
  parts.historyFile = std::move(historyFile);
  parts.completions = std::move(completions);
  parts.line = el_init("velmora-tool", stdin, stdout, stderr);
  parts.history = history_init();
  if (parts.line == nullptr || parts.history == nullptr) throw std::bad_alloc();
  el_set(parts.line, EL_CLIENTDATA, &parts);
  el_set(parts.line, EL_PROMPT, promptOf);
  el_set(parts.line, EL_EDITOR, "emacs");
  el_set(parts.line, EL_GETCFN, readCharacter);
  el_set(parts.line, EL_HIST, history, parts.history);
  // The one for narrow texts would never free its copies of these.
  el_wset(parts.line, EL_ADDFN, L"velmora-complete", L"Completes a word", complete);
  el_set(parts.line, EL_BIND, "^I", "velmora-complete", nullptr);
  el_set(parts.line, EL_BIND, "^R", "em-inc-search-prev", nullptr);
  history(parts.history, &parts.event, H_SETSIZE, 1000);
  history(parts.history, &parts.event, H_SETUNIQUE, 1);
  if (!parts.historyFile.empty()) {
    history(parts.history, &parts.event, H_LOAD, parts.historyFile.c_str());
  }
}

Prompt::~Prompt() {
  el_end(parts_->line);
  history_end(parts_->history);
}

Prompt::End Prompt::read(const std::string& prompt, std::string& line) {
  parts_->prompt = prompt;
  int count = 0;
  const char* const text = el_gets(parts_->line, &count);
  if (isInterrupted()) {
    forgetInterrupt();
    el_reset(parts_->line);
    return End::interrupt;
  }
  if (text == nullptr || count <= 0) return End::input;
  line.assign(text, static_cast<std::size_t>(count));
  while (line.ends_with('\n') || line.ends_with('\r')) line.pop_back();
  return End::line;
}

void Prompt::remember(const std::string& command) {
  history(parts_->history, &parts_->event, H_ENTER, command.c_str());
  if (parts_->historyFile.empty()) return;
  history(parts_->history, &parts_->event, H_SAVE, parts_->historyFile.c_str());
  // The history is nobody else's affair.
  chmod(parts_->historyFile.c_str(), S_IRUSR | S_IWUSR);
}

std::string usualHistoryFile() {
  std::filesystem::path directory;
  if (const char* const state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/') {
    directory = state;
  } else if (const char* const home = std::getenv("HOME"); home != nullptr && *home == '/') {
    directory = std::filesystem::path(home) / ".local" / "state";
  } else {
    return "";
  }
  directory /= "velmora";
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  return error ? "" : (directory / "tool_history").string();
}

}  // namespace tool
