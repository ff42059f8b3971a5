// Values bound to a command: any text with places and any values. Either the binding is refused,
// for a reason that is there, or the bound command reads as the text does with one literal of the
// value in each place. An input is
//
//   1 byte    the number of values
//   per value:
//     1 byte  what it is, and for a text how long
//     n bytes its content
//   the rest  the text
#include <cfloat>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "engine_run.h"
#include "lexer.h"
#include "number.h"
#include "parser/parser.h"
#include "value_binding.h"

namespace {

using namespace velmora;
using namespace velmora::fuzz;

constexpr std::size_t mostValues = 4;
constexpr std::size_t longestText = 63;

class Input {
 public:
  explicit Input(std::string_view bytes) : rest_(bytes) {}

  std::string_view take(std::size_t size) {
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(taken.size());
    return taken;
  }
  unsigned char byte() {
    const std::string_view taken = take(1);
    return taken.empty() ? '\0' : static_cast<unsigned char>(taken.front());
  }
  template <typename Number>
  Number number() {
    Number value = 0;
    const std::string_view taken = take(sizeof value);
    std::memcpy(&value, taken.data(), taken.size());
    return value;
  }

 private:
  std::string_view rest_;
};

velmora_value takeValue(Input& input) {
  velmora_value value = {};
  const unsigned char kind = input.byte();
  value.type = static_cast<velmora_type>(kind % 4);
  switch (value.type) {
    case VELMORA_INTEGER:
      value.integer = kind < 128 ? input.number<std::int32_t>() : input.number<std::int64_t>();
      break;
    case VELMORA_FLOAT:
      value.real = kind < 128 ? static_cast<double>(input.number<float>()) : input.number<double>();
      break;
    case VELMORA_BOOL:
      value.boolean = kind & 4;
      break;
    case VELMORA_TEXT: {
      const std::string_view text = input.take((kind / 4) % (longestText + 1));
      value.text = text.data();
      value.text_size = text.size();
    }
  }
  return value;
}

std::string_view textOf(const velmora_value& value) { return {value.text, value.text_size}; }

bool mayBeRefused(const velmora_value& value) {
  switch (value.type) {
    case VELMORA_INTEGER:
      return value.integer != static_cast<std::int32_t>(value.integer);
    case VELMORA_FLOAT: {
      const double size = std::fabs(value.real);
      return !(size <= FLT_MAX) || (size < FLT_MIN && size != 0);
    }
    case VELMORA_BOOL:
      return false;
    case VELMORA_TEXT:
      break;
  }
  const std::string_view text = textOf(value);
  const auto holds = [&](char c) { return text.find(c) != std::string_view::npos; };
  return holds('\0') || (holds('\'') && holds('"')) || text.find(" #TIME# ") != text.npos;
}

// The positions of the places: the question marks outside of literals.
std::vector<std::size_t> placesOf(std::string_view text) {
  std::vector<std::size_t> places;
  char quote = '\0';
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (quote != '\0') {
      if (text[i] == quote) quote = '\0';
    } else if (text[i] == '\'' || text[i] == '"') {
      quote = text[i];
    } else if (text[i] == '?') {
      places.push_back(i);
    }
  }
  return places;
}

// Whether the tokens from `position` on are those of a text; goes on behind them. An error is the
// last token of both.
bool takeTokensOf(std::string_view text, const std::vector<Token>& tokens, std::size_t& position) {
  Lexer lexer(text);
  for (const Token& token : lexer.tokenize()) {
    if (position == tokens.size() || tokens[position].type != token.type) return false;
    if (tokens[position].value != token.value) return false;
    ++position;
  }
  return true;
}

bool isValue(const Token& token, const velmora_value& value) {
  switch (value.type) {
    case VELMORA_INTEGER:
      return token.type == TokenType::NUMBER && token.value == std::to_string(value.integer);
    case VELMORA_FLOAT:
      return token.type == TokenType::NUMBER &&
             parseFloat(token.value) == static_cast<float>(value.real);
    case VELMORA_BOOL:
      return token.type == TokenType::IDENTIFIER &&
             token.value == (value.boolean != 0 ? "true" : "false");
    case VELMORA_TEXT:
      break;
  }
  return token.type == TokenType::STRING && token.value == textOf(value);
}

bool isNumberWithDigit(const velmora_value& value) {
  if (value.type == VELMORA_INTEGER) return value.integer >= 0;
  return value.type == VELMORA_FLOAT && !std::signbit(value.real);
}

void checkBound(const std::string& text, const std::vector<std::size_t>& places,
                const std::vector<velmora_value>& values, const std::string& bound) {
  // What a clock marker cuts off, it cuts off in the text as well.
  std::string withDigits = text;
  for (std::size_t i = 0; i < places.size(); ++i) {
    withDigits[places[i]] = isNumberWithDigit(values[i]) ? '0' : 'x';
  }
  const std::size_t end = std::min(findClockMarker(withDigits), text.size());
  const std::size_t boundEnd = std::min(findClockMarker(bound), bound.size());
  require((end == text.size()) == (boundEnd == bound.size()), "A clock marker came or went");

  Lexer lexer(std::string_view(bound).substr(0, boundEnd));
  const std::vector<Token> tokens = lexer.tokenize();
  const auto endsInError = [&](std::size_t position) {
    return position == tokens.size() && position > 0 &&
           tokens[position - 1].type == TokenType::ERROR;
  };
  std::size_t position = 0;
  std::size_t from = 0;
  for (std::size_t i = 0; i < places.size() && places[i] < end; ++i) {
    const std::string_view piece = std::string_view(text).substr(from, places[i] - from);
    require(takeTokensOf(piece, tokens, position), "The text reads otherwise before a value");
    if (endsInError(position)) return;
    require(position < tokens.size() && isValue(tokens[position], values[i]),
            "A value reads as something else");
    ++position;
    from = places[i] + 1;
  }
  const std::string_view rest = std::string_view(text).substr(from, end - from);
  require(takeTokensOf(rest, tokens, position), "The text reads otherwise behind the values");
  require(position == tokens.size(), "The bound command reads on behind the text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input({reinterpret_cast<const char*>(data), size});
  std::vector<velmora_value> values(input.byte() % (mostValues + 1));
  bool isRefusable = false;
  for (velmora_value& value : values) {
    value = takeValue(input);
    isRefusable = isRefusable || mayBeRefused(value);
  }
  // Command texts end at a zero byte.
  const std::string_view rest = input.take(size);
  const std::string text(rest.substr(0, rest.find('\0')));
  const std::vector<std::size_t> places = placesOf(text);
  try {
    const std::string bound = bindValues(text, values).text;
    require(places.size() == values.size(), "Bound with another number of values than places");
    checkBound(text, places, values, bound);
  } catch (const std::runtime_error& error) {
    if (!isRefusable && places.size() == values.size()) fail(error.what());
  }
  return 0;
}
