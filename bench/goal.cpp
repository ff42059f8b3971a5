// Goals in words, with the share that was reached behind them.
#include "goal.h"

#include <cstdio>

namespace bench {

namespace {

std::string limitText(double limit) {
  char text[32];
  std::snprintf(text, sizeof text, "at most %.3g", limit);
  return text;
}

void judgeShare(Line& line, double own, double other, double limit, const std::string& ofWhat) {
  line.goal = limitText(limit) + " of " + ofWhat + " (" + shareText(own / other) + ")";
  line.verdict = own <= limit * other ? Verdict::met : Verdict::missed;
}

}  // namespace

void judge(Line& line, const Goal& goal, const std::vector<Line>& lines) {
  const double own = line.figures.at(line.own);
  switch (goal.kind) {
    case Goal::Kind::none:
      break;
    case Goal::Kind::absolute:
      line.goal = "at most " + figureText(goal.value, line.unit);
      line.verdict = own <= goal.value ? Verdict::met : Verdict::missed;
      break;
    case Goal::Kind::ofMode:
      if (!line.figures.contains(goal.mode)) {
        line.goal = limitText(goal.value) + " of " + modeName(goal.mode);
        break;
      }
      judgeShare(line, own, line.figures.at(goal.mode), goal.value, modeName(goal.mode));
      break;
    case Goal::Kind::ofMeasure: {
      const double other = lines.at(goal.other).figures.at(line.own);
      judgeShare(line, own, other, goal.value, goal.otherName);
      break;
    }
  }
}

}  // namespace bench
