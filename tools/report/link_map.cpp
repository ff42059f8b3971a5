// See link_map.h. Tables stand in rows: the first has those without parents, each further one
// those whose parents stand above.
#include "report/link_map.h"

#include <algorithm>
#include <map>

#include "report/text.h"

namespace tool {
namespace {

constexpr double boxHeight = 46;
constexpr double rowDistance = 104;
constexpr double gap = 24;

struct Place {
  double x = 0;
  double y = 0;
};

// How far below the top each linked table stands. A table can be its own parent, and two each
// other's: nothing moves more often than there are tables.
std::map<std::string, std::size_t> levelsOf(const std::vector<LinkShape>& links) {
  std::map<std::string, std::size_t> levels;
  for (const LinkShape& link : links) levels[link.childTable] = levels[link.parentTable] = 0;
  for (std::size_t round = 1; round < levels.size(); ++round) {
    for (const LinkShape& link : links) {
      std::size_t& level = levels[link.childTable];
      const std::size_t least = levels[link.parentTable] + 1;
      if (link.childTable != link.parentTable && level < least && least < levels.size()) {
        level = least;
      }
    }
  }
  return levels;
}

class LinkMap {
 public:
  LinkMap(const Facts& facts, bool isNarrow)
      : facts_(facts),
        isNarrow_(isNarrow),
        width_(isNarrow ? 360 : 960),
        boxWidth_(isNarrow ? 150 : 190) {
    place();
  }
  std::string svg();

 private:
  void place();
  void drawBox(const std::string& table);
  void drawLink(const LinkShape& link);

  const Facts& facts_;
  bool isNarrow_;
  double width_;
  double boxWidth_;
  double height_ = 0;
  std::map<std::string, Place> places_;
  std::string svg_;
};

void LinkMap::place() {
  std::map<std::size_t, std::vector<std::string>> rows;
  for (const auto& [table, level] : levelsOf(facts_.links)) rows[level].push_back(table);
  const auto most = static_cast<std::size_t>((width_ - 8 + gap) / (boxWidth_ + gap));
  double y = 6;
  for (const auto& [level, tables] : rows) {
    for (std::size_t begin = 0; begin < tables.size(); begin += most) {
      const std::size_t count = std::min(most, tables.size() - begin);
      const double all = static_cast<double>(count) * (boxWidth_ + gap) - gap;
      for (std::size_t i = 0; i < count; ++i) {
        const double x = (width_ - all) / 2 + static_cast<double>(i) * (boxWidth_ + gap);
        places_[tables[begin + i]] = {x, y};
      }
      y += rowDistance;
    }
  }
  height_ = y - rowDistance + boxHeight + 8;
}

void LinkMap::drawBox(const std::string& table) {
  const auto facts = std::find_if(facts_.tables.begin(), facts_.tables.end(),
                                  [&](const TableFacts& each) { return each.shape.name == table; });
  const std::uint64_t rows =
      facts == facts_.tables.end() ? 0 : static_cast<std::uint64_t>(facts->shape.rows);
  const Place& at = places_[table];
  const std::string middle = coordinate(at.x + boxWidth_ / 2);
  svg_ += "<g class=\"box\"><rect x=\"" + coordinate(at.x) + "\" y=\"" + coordinate(at.y) +
          "\" width=\"" + coordinate(boxWidth_) + "\" height=\"" + coordinate(boxHeight) +
          "\" rx=\"8\"/><text class=\"name\" x=\"" + middle + "\" y=\"" + coordinate(at.y + 20) +
          "\" text-anchor=\"middle\">" + html(table) + "</text><text class=\"rows\" x=\"" + middle +
          "\" y=\"" + coordinate(at.y + 36) + "\" text-anchor=\"middle\">" +
          countText(rows, "row") + "</text></g>\n";
}

// From the child's top edge to the parent's bottom edge; each link of a pair a little beside the
// other.
void LinkMap::drawLink(const LinkShape& link) {
  const Place& child = places_[link.childTable];
  const Place& parent = places_[link.parentTable];
  double offset = 0;
  for (const LinkShape& other : facts_.links) {
    if (&other == &link) break;
    if (other.childTable == link.childTable) offset += 26;
  }
  const double fromX = child.x + boxWidth_ / 2 + offset;
  const double toX = parent.x + boxWidth_ / 2 + offset / 2;
  const bool isUp = child.y > parent.y;
  const double fromY = isUp ? child.y : child.y + boxHeight;
  const double toY = isUp ? parent.y + boxHeight + 7 : parent.y + boxHeight + 7;
  const double bend = isUp ? (fromY - toY) / 2 : -40;
  const auto point = [](double x, double y) { return coordinate(x) + " " + coordinate(y); };
  const std::string label = html(link.childColumn + " → " + link.parentColumn);
  svg_ += "<g class=\"link\"><title>" +
          html(link.childTable + "." + link.childColumn + " → " + link.parentTable + "." +
               link.parentColumn) +
          "</title><path d=\"M" + point(fromX, fromY) + " C" + point(fromX, fromY - bend) + " " +
          point(toX, toY + (isUp ? bend : 40)) + " " + point(toX, toY) +
          "\" marker-end=\"url(#arrow" + (isNarrow_ ? "-narrow" : "-wide") + ")\"/><text x=\"" +
          coordinate((fromX + toX) / 2 + 8) + "\" y=\"" + coordinate((fromY + toY) / 2 + 4) +
          "\">" + label + "</text></g>\n";
}

std::string LinkMap::svg() {
  const std::string kind = isNarrow_ ? "narrow" : "wide";
  svg_ = "<svg class=\"links " + kind + "\" role=\"img\" aria-labelledby=\"links-" + kind +
         "-title links-" + kind + "-desc\" viewBox=\"0 0 " + coordinate(width_) + " " +
         coordinate(height_) + "\">\n<title id=\"links-" + kind +
         "-title\">Links between tables</title>\n<desc id=\"links-" + kind +
         "-desc\">An arrow goes from a child table to its parent; the table below has the same "
         "facts.</desc>\n<defs><marker id=\"arrow-" +
         kind +
         "\" viewBox=\"0 0 8 8\" refX=\"1\" refY=\"4\" markerWidth=\"8\" markerHeight=\"8\" "
         "orient=\"auto\"><path class=\"head\" d=\"M0 0L8 4L0 8z\"/></marker></defs>\n";
  for (const LinkShape& link : facts_.links) drawLink(link);
  for (const auto& [table, at] : places_) drawBox(table);
  svg_ += "</svg>\n";
  return std::move(svg_);
}

}  // namespace

std::string linkMapSvg(const Facts& facts, bool isNarrow) { return LinkMap(facts, isNarrow).svg(); }

}  // namespace tool
