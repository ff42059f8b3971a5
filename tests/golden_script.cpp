// Reads golden scripts line by line. Each reader stands under the form that it reads and consumes
// the lines that belong to it; whatever does not follow the format throws ScriptError, so that a
// misspelt test cannot pass.

#include "golden_script.h"

#include <algorithm>
#include <charconv>
#include <sstream>

namespace velmora::golden {
namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

class ScriptReader {
 public:
  explicit ScriptReader(const std::string& script) {
    std::istringstream stream(script);
    for (std::string line; std::getline(stream, line);) lines_.push_back(line);
  }

  std::vector<Step> readSteps() {
    std::vector<Step> steps;
    while (index_ < lines_.size()) {
      const std::string line = indentationRemoved(lines_[index_++]);
      if (line.empty() || line[0] == '#') continue;
      steps.push_back(readStep(line));
    }
    return steps;
  }

 private:
  Step readStep(const std::string& line) {
    Step step;
    step.lineNumber = lineNumber();
    step.source = line;
    if (line[0] == '>') {
      readCommand(line, step);
    } else {
      step.words = splitWords(line);
      step.verb = step.words.front();
      step.words.erase(step.words.begin());
      if (step.verb == "start" || step.verb == "stop") readLifecycle(line, step);
    }
    readOutput(step);
    return step;
  }

  // > command            the rest of the line as it stands
  // >e command           the same with its escapes replaced
  void readCommand(const std::string& line, Step& step) {
    const bool escaped = line.starts_with(">e");
    std::string_view text = std::string_view(line).substr(escaped ? 2 : 1);
    if (!text.empty() && text[0] != ' ') fail("a blank is missing behind '>' or '>e'");
    if (!text.empty()) text.remove_prefix(1);
    step.verb = ">";
    step.command = escaped ? unescape(text) : std::string(text);
    if (index_ == lines_.size()) fail("the expected answer is missing");
    const std::string answer = indentationRemoved(lines_[index_++]);
    step.expected = readAnswer(answer);
  }

  // start | stop | start throws TYPE text
  void readLifecycle(const std::string& line, Step& step) {
    if (step.words.empty()) return;
    if (step.words[0] != "throws") fail("only 'throws' may follow '" + step.verb + "'");
    step.expected = readThrows(std::string_view(line).substr(step.verb.size() + 1));
  }

  void readOutput(Step& step) {
    static const std::string prefix = "stdout:";
    while (index_ < lines_.size()) {
      const std::string line = indentationRemoved(lines_[index_]);
      if (!line.starts_with(prefix)) return;
      std::string_view text = std::string_view(line).substr(prefix.size());
      if (!text.empty() && text[0] == ' ') text.remove_prefix(1);
      step.expectedOutput.append(text).append("\n");
      ++index_;
    }
  }

  Outcome readAnswer(const std::string& line) {
    const std::size_t blank = line.find(' ');
    const std::string form = line.substr(0, blank);
    const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (form == "ok") return readCounted(rest, "success!", false);
    if (form == "rows") return readCounted(rest, "", true);
    if (form == "error") return {"", renderAnswer(false, "Error: " + rest, 0, {})};
    if (form == "fail") return {"", renderAnswer(false, rest, 0, {})};
    if (form == "text") return {"", rest};
    if (form == "throws") return readThrows(line);
    if (line == "raw") return {"", readRaw()};
    fail("this is not an expected answer: " + line);
  }

  // ok [N] ["message"] | rows N ["message"] and N lines of data
  Outcome readCounted(const std::string& rest, std::string message, bool hasData) {
    const std::size_t quote = std::min(rest.find('"'), rest.size());
    const std::vector<std::string> words = splitWords(rest.substr(0, quote));
    if (words.size() > 1) fail("too many words: " + rest);
    if (hasData && words.empty()) fail("'rows' needs the number of rows");
    const long rowsAffected = words.empty() ? 0 : number(words[0]);
    if (quote < rest.size()) {
      // As the engine does, the message is not escaped: it may hold quotes.
      if (rest.size() < quote + 2 || rest.back() != '"') fail("a closing quote is missing");
      message = rest.substr(quote + 1, rest.size() - quote - 2);
    }
    std::vector<std::string> data;
    for (long row = 0; hasData && row < rowsAffected; ++row) {
      if (index_ == lines_.size()) fail("fewer data lines than rows");
      data.push_back(indentationRemoved(lines_[index_++]));
      if (!data.back().starts_with("{")) fail("a data line begins with '{'");
    }
    return {"", renderAnswer(true, message, rowsAffected, data)};
  }

  // throws TYPE text
  Outcome readThrows(std::string_view line) {
    line.remove_prefix(std::string_view("throws").size());
    if (!line.empty()) line.remove_prefix(1);
    const std::size_t blank = line.find(' ');
    const std::string type(line.substr(0, blank));
    if (type.empty()) fail("'throws' needs a type");
    return {type, blank == std::string_view::npos ? "" : std::string(line.substr(blank + 1))};
  }

  std::string readRaw() {
    std::string text;
    for (bool first = true; index_ < lines_.size() && !lines_[index_].empty(); first = false) {
      if (!first) text += '\n';
      text += lines_[index_++];
    }
    return text;
  }

  static std::string renderAnswer(bool success, const std::string& message, long rowsAffected,
                                  const std::vector<std::string>& data) {
    std::string json = "{\n  \"success\": ";
    json += success ? "true" : "false";
    json += ",\n  \"message\": \"" + message + "\",\n  \"rows_affected\": ";
    json += std::to_string(rowsAffected);
    if (data.empty()) return json + "\n}";
    json += ",\n  \"data\": [\n";
    for (std::size_t row = 0; row < data.size(); ++row) {
      json += "    " + data[row] + (row + 1 < data.size() ? ",\n" : "\n");
    }
    return json + "  ]\n}";
  }

  // Words are separated by blanks; one in double quotes may hold blanks and escapes.
  std::vector<std::string> splitWords(std::string_view line) {
    std::vector<std::string> words;
    std::size_t position = 0;
    while ((position = line.find_first_not_of(' ', position)) != std::string_view::npos) {
      std::size_t end;
      if (line[position] == '"') {
        end = closingQuote(line, position);
        words.push_back(unescape(line.substr(position + 1, end - position - 1)));
        ++end;
      } else {
        end = std::min(line.find(' ', position), line.size());
        words.emplace_back(line.substr(position, end - position));
      }
      position = end;
    }
    return words;
  }

  std::size_t closingQuote(std::string_view line, std::size_t opening) {
    for (std::size_t position = opening + 1; position < line.size(); ++position) {
      if (line[position] == '"') return position;
      if (line[position] == '\\') ++position;
    }
    fail("a closing quote is missing");
  }

  std::string unescape(std::string_view text) {
    std::string bytes;
    for (std::size_t position = 0; position < text.size(); ++position) {
      if (text[position] != '\\') {
        bytes += text[position];
        continue;
      }
      const char kind = ++position < text.size() ? text[position] : '?';
      switch (kind) {
        case 'n':
          bytes += '\n';
          break;
        case 't':
          bytes += '\t';
          break;
        case '0':
          bytes += '\0';
          break;
        case '\\':
          bytes += '\\';
          break;
        case '"':
          bytes += '"';
          break;
        case 'x':
          bytes += hexByte(text.substr(position + 1, 2));
          position += 2;
          break;
        default:
          fail("unknown escape in: " + std::string(text));
      }
    }
    return bytes;
  }

  char hexByte(std::string_view digits) {
    if (digits.size() != 2 || hexDigit(digits[0]) < 0 || hexDigit(digits[1]) < 0) {
      fail("two hexadecimal digits are needed");
    }
    return static_cast<char>(hexDigit(digits[0]) * 16 + hexDigit(digits[1]));
  }

  long number(const std::string& word) {
    long value = 0;
    const char* end = word.data() + word.size();
    const auto [parsed, error] = std::from_chars(word.data(), end, value);
    if (error != std::errc() || parsed != end) fail("a number is needed, not: " + word);
    return value;
  }

  static std::string indentationRemoved(const std::string& line) {
    const std::size_t begin = line.find_first_not_of(" \t");
    return begin == std::string::npos ? "" : line.substr(begin);
  }

  int lineNumber() const { return static_cast<int>(index_); }
  [[noreturn]] void fail(const std::string& reason) const {
    throw ScriptError(lineNumber(), reason);
  }

  std::vector<std::string> lines_;
  std::size_t index_ = 0;  // the next line to read, counted from 0; so the last one read, from 1
};

}  // namespace

std::vector<Step> parseScript(const std::string& script) {
  return ScriptReader(script).readSteps();
}

std::string escape(std::string_view bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      text += "\\n";
    } else if (c == '\\' || c == '"') {
      text += '\\';
      text += c;
    } else if (byte < 0x20 || byte >= 0x7f) {
      text += "\\x";
      text += digits[byte / 16];
      text += digits[byte % 16];
    } else {
      text += c;
    }
  }
  return text;
}

}  // namespace velmora::golden
