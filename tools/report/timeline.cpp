// See timeline.h.
#include "report/timeline.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>

#include "report/text.h"

namespace tool {
namespace {

constexpr std::size_t longestLabel = 24;

// Measures of a drawing, in units of its view box, which are about pixels.
struct Measures {
  double width;
  double left;       // where the line of time begins
  double rowHeight;  // of a bar, and its label if that stands above
  double barTop;     // within the row
  int mostTicks;

  static constexpr double barHeight = 26;
  static constexpr double axisHeight = 34;
  static constexpr double right = 8;
  double lineWidth() const { return width - left - right; }
};
constexpr Measures wide = {960, 200, 38, 6, 8};
constexpr Measures narrow = {360, 6, 54, 22, 4};

// The colour of a state: what its text says, or the next one of the column.
class Colours {
 public:
  std::string of(const std::string& text) {
    std::string word;
    for (const char c : text)
      word += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const auto& [known, colour] : named) {
      if (word == known) return colour;
    }
    const auto [found, isNew] = given_.try_emplace(text, given_.size() % order.size());
    return order[found->second];
  }

 private:
  static constexpr std::array<std::pair<const char*, const char*>, 24> named = {
      {{"red", "red"},      {"green", "green"},   {"amber", "amber"},   {"yellow", "amber"},
       {"orange", "amber"}, {"blue", "blue"},     {"violet", "violet"}, {"purple", "violet"},
       {"pink", "pink"},    {"grey", "grey"},     {"gray", "grey"},     {"black", "grey"},
       {"true", "green"},   {"false", "grey"},    {"on", "green"},      {"off", "grey"},
       {"open", "green"},   {"closed", "grey"},   {"shut", "grey"},     {"yes", "green"},
       {"no", "grey"},      {"enabled", "green"}, {"disabled", "grey"}, {"active", "green"}}};
  static constexpr std::array<const char*, 6> order = {"blue",  "teal", "violet",
                                                       "amber", "pink", "green"};
  std::map<std::string, std::size_t> given_;
};

class Drawing {
 public:
  Drawing(const TableFacts& table, std::int64_t now, const Measures& measures)
      : table_(table), now_(now), measures_(measures), span_(spanOf(table.cells, now)) {}

  std::string svg();

 private:
  double x(std::int64_t second) const {
    const double share =
        static_cast<double>(second - span_.from) / static_cast<double>(span_.until - span_.from);
    return measures_.left + share * measures_.lineWidth();
  }
  void drawAxis(double bottom);
  std::string tickText(std::int64_t second, std::int64_t step) const;
  void drawCell(const TimedCell& cell, double top);
  void drawBar(const TimedCell& cell, const Bar& bar, double top);
  void drawQuickCycle(const TimedCell& cell, double top);
  void drawBox(double from, double until, double top, const std::string& attributes,
               const std::string& title, const std::string& text);

  const TableFacts& table_;
  std::int64_t now_;
  const Measures& measures_;
  Span span_;
  Colours colours_;
  std::string svg_;
};

// The distance of ticks, of those that people count in.
std::int64_t tickStep(std::int64_t seconds, int most) {
  constexpr std::array<std::int64_t, 26> steps = {
      1,      2,      5,       10,      15,      30,       60,       120,      300,
      600,    900,    1800,    3600,    7200,    10800,    21600,    43200,    86400,
      172800, 604800, 1209600, 2592000, 7776000, 15552000, 31536000, 157680000};
  for (const std::int64_t step : steps) {
    if (seconds / step <= most) return step;
  }
  return seconds / most + 1;
}

std::string Drawing::tickText(std::int64_t second, std::int64_t step) const {
  if (step >= 2592000) return monthText(second);
  if (step >= 86400 || second % 86400 == 0) return dayText(second);
  return clockText(second, step < 60);
}

void Drawing::drawAxis(double bottom) {
  const std::int64_t step = tickStep(span_.until - span_.from, measures_.mostTicks);
  std::int64_t second = span_.from / step * step;
  if (second < span_.from) second += step;
  for (; second <= span_.until; second += step) {
    const std::string at = coordinate(x(second));
    const double room = 4.0 * static_cast<double>(tickText(second, step).size());
    svg_ += "<line class=\"tick\" x1=\"" + at + "\" x2=\"" + at + "\" y1=\"" +
            coordinate(Measures::axisHeight - 8) + "\" y2=\"" + coordinate(bottom) + "\"/>";
    if (x(second) - room < measures_.left - 4 || x(second) + room > measures_.width) continue;
    svg_ += "<text class=\"when\" x=\"" + at + "\" y=\"" + coordinate(Measures::axisHeight - 13) +
            "\" text-anchor=\"middle\">" + tickText(second, step) + "</text>\n";
  }
}

std::string Drawing::svg() {
  const double height =
      Measures::axisHeight + measures_.rowHeight * static_cast<double>(table_.cells.size()) + 20;
  const bool isNarrow = &measures_ == &narrow;
  const std::string id = html(table_.shape.name) + (isNarrow ? "-narrow" : "-wide");
  svg_ = "<svg class=\"timeline " + std::string(isNarrow ? "narrow" : "wide") +
         "\" role=\"img\" aria-labelledby=\"" + id + "-title " + id + "-desc\" viewBox=\"0 0 " +
         coordinate(measures_.width) + " " + coordinate(height) + "\" data-from=\"" +
         std::to_string(span_.from) + "\" data-until=\"" + std::to_string(span_.until) +
         "\" data-left=\"" + coordinate(measures_.left) + "\" data-width=\"" +
         coordinate(measures_.lineWidth()) + "\">\n<title id=\"" + id +
         "-title\">Timed values of table " + html(table_.shape.name) + "</title>\n<desc id=\"" +
         id + "-desc\">From " + timeText(span_.from) + " to " + timeText(span_.until) +
         " UTC; the table below has the same facts.</desc>\n";
  drawAxis(height - 18);
  double top = Measures::axisHeight;
  for (const TimedCell& cell : table_.cells) {
    drawCell(cell, top);
    top += measures_.rowHeight;
  }
  const std::string at = coordinate(x(now_));
  svg_ += "<line class=\"now\" x1=\"" + at + "\" x2=\"" + at + "\" y1=\"" +
          coordinate(Measures::axisHeight - 8) + "\" y2=\"" + coordinate(height - 16) +
          "\"/><text class=\"nowtext\" x=\"" + at + "\" y=\"" + coordinate(height - 4) +
          "\" text-anchor=\"middle\">now</text>\n</svg>\n";
  return std::move(svg_);
}

void Drawing::drawCell(const TimedCell& cell, double top) {
  const std::string column = html(cell.column);
  const std::string row = html(cell.row, longestLabel);
  svg_ += "<g class=\"cell\"><title>" + html(cell.row) + ", " + column + "</title>";
  if (&measures_ == &narrow) {
    svg_ += "<text class=\"label\" x=\"" + coordinate(measures_.left) + "\" y=\"" +
            coordinate(top + 16) + "\">" + row + " <tspan class=\"column\">" + column +
            "</tspan></text></g>\n";
  } else {
    const std::string end = coordinate(measures_.left - 12);
    svg_ += "<text class=\"label\" x=\"" + end + "\" y=\"" + coordinate(top + 17) +
            "\" text-anchor=\"end\">" + row + "</text><text class=\"column\" x=\"" + end +
            "\" y=\"" + coordinate(top + 31) + "\" text-anchor=\"end\">" + column + "</text></g>\n";
  }
  constexpr double leastPass = 14;
  const double passWidth = static_cast<double>(cell.plan.length()) * measures_.lineWidth() /
                           static_cast<double>(span_.until - span_.from);
  if (cell.plan.cycles && passWidth < leastPass) return drawQuickCycle(cell, top);
  for (const Bar& bar : barsOf(cell.plan, span_, now_)) drawBar(cell, bar, top);
}

// Passes too short to be told apart are one bar.
void Drawing::drawQuickCycle(const TimedCell& cell, double top) {
  const std::int64_t from = std::clamp(cell.plan.start, span_.from, span_.until);
  if (from > span_.from) {
    drawBar(cell, {span_.from, from, 0, Bar::Look::waiting, false}, top);
  }
  if (from == span_.until) return;
  std::string states;
  for (const std::string& text : cell.texts) states += (states.empty() ? "" : ", ") + text;
  const std::string text = "cycles every " + durationText(cell.plan.length()) + ": " + states;
  drawBox(x(from), x(span_.until), top, "class=\"bar quick\"", text, text);
}

void Drawing::drawBar(const TimedCell& cell, const Bar& bar, double top) {
  const std::string& value = cell.texts[bar.state];
  std::string classes = "bar " + colours_.of(value);
  std::string title = value;
  if (bar.look == Bar::Look::waiting) {
    classes += " waiting";
    title += ", before its start at " + timeText(bar.until) + " UTC";
  } else {
    if (bar.look == Bar::Look::repeated) classes += " repeated";
    title += ", from " + timeText(bar.from) +
             (bar.staysForEver ? " UTC for ever" : " to " + timeText(bar.until) + " UTC");
  }
  if (bar.staysForEver) classes += " forever";
  drawBox(x(std::max(bar.from, span_.from)), x(std::min(bar.until, span_.until)), top,
          "class=\"" + classes + "\" data-from=\"" + std::to_string(bar.from) + "\" data-until=\"" +
              std::to_string(bar.until) + "\" data-value=\"" + html(value) + "\"",
          title, value + (bar.staysForEver ? " →" : ""));
}

void Drawing::drawBox(double from, double until, double top, const std::string& attributes,
                      const std::string& title, const std::string& text) {
  constexpr double characterWidth = 7.4;
  const double y = top + measures_.barTop;
  const double room = until - from;
  svg_ += "<g " + attributes + "><title>" + html(title) + "</title><rect x=\"" + coordinate(from) +
          "\" y=\"" + coordinate(y) + "\" width=\"" + coordinate(room) + "\" height=\"" +
          coordinate(Measures::barHeight) + "\"/>";
  const auto most = static_cast<std::size_t>(std::max(0.0, (room - 12) / characterWidth));
  const bool fits = drawnWidth(text) <= most;
  if (fits || most >= 6) {
    svg_ += "<text x=\"" + coordinate(from + 7) + "\" y=\"" + coordinate(y + 17.5) + "\">" +
            html(text, fits ? 200 : most - 1) + "</text>";
  }
  svg_ += "</g>\n";
}

}  // namespace

Span spanOf(const std::vector<TimedCell>& cells, std::int64_t now) {
  std::int64_t ahead = 0;
  std::int64_t behind = 0;
  for (const TimedCell& cell : cells) {
    const Plan& plan = cell.plan;
    const std::int64_t last = plan.states.empty() ? 0 : plan.states.back().seconds;
    if (plan.cycles) {
      ahead = std::max(ahead, std::max<std::int64_t>(plan.start - now, 0) + plan.length() * 2);
    } else if (const std::int64_t end = plan.start + plan.length() - last; end > now) {
      ahead = std::max(ahead, (end - now) * 5 / 4);
    } else {
      behind = std::max(behind, (now - end) * 5 / 4);
    }
  }
  constexpr std::int64_t longest = std::int64_t{1} << 41;
  ahead = std::min(ahead, longest);
  if (ahead == 0) ahead = std::min(behind, longest) / 3;
  ahead = std::max<std::int64_t>(ahead, 30);
  behind = std::min(std::max(behind, ahead / 3), ahead);
  if (cells.empty()) behind = ahead;
  return {now - behind, now + ahead};
}

std::vector<Bar> barsOf(const Plan& plan, const Span& span, std::int64_t now) {
  std::vector<Bar> bars;
  const std::int64_t pass = plan.length();
  if (plan.states.empty() || pass <= 0) return bars;
  const auto add = [&](std::int64_t from, std::int64_t until, std::size_t state, Bar::Look look,
                       bool staysForEver) {
    if (from >= until || until <= span.from || from >= span.until) return;
    const bool goesOn = !bars.empty() && bars.back().look == look &&
                        plan.states[bars.back().state].value == plan.states[state].value;
    if (goesOn) {
      bars.back().until = until;
      bars.back().staysForEver = staysForEver;
    } else {
      bars.push_back({from, until, state, look, staysForEver});
    }
  };
  add(std::min(span.from, plan.start), plan.start, 0, Bar::Look::waiting, false);
  const std::int64_t current = now < plan.start ? 0 : (now - plan.start) / pass;
  const std::int64_t first =
      plan.cycles && span.from > plan.start ? (span.from - plan.start) / pass : 0;
  std::int64_t second = plan.start + first * pass;
  for (std::int64_t round = first; second < span.until; ++round) {
    const auto look = !plan.cycles || round == current ? Bar::Look::solid : Bar::Look::repeated;
    for (std::size_t i = 0; i < plan.states.size(); ++i) {
      const bool isLast = !plan.cycles && i + 1 == plan.states.size();
      const std::int64_t end =
          isLast ? std::max(span.until, second + 1) : second + plan.states[i].seconds;
      add(second, end, i, look, isLast);
      second = end;
    }
    if (!plan.cycles) break;
  }
  return bars;
}

std::string timelineSvg(const TableFacts& table, std::int64_t now, bool isNarrow) {
  return Drawing(table, now, isNarrow ? narrow : wide).svg();
}

}  // namespace tool
