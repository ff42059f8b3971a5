// See page.h.
#include "report/page.h"

#include <algorithm>

#include "copy/content.h"
#include "copy/literals.h"
#include "report/link_map.h"
#include "report/style.h"
#include "report/text.h"
#include "report/timeline.h"

namespace tool {
namespace {

// What the timelines paint with.
constexpr std::string_view patterns =
    R"svg(<svg width="0" height="0" style="position:absolute" aria-hidden="true" focusable="false">
<defs>
<pattern id="hatch" width="7" height="7" patternUnits="userSpaceOnUse"
 patternTransform="rotate(45)"><path d="M0 0V7" stroke="var(--line)" stroke-width="5"/></pattern>
<pattern id="stripes" width="12" height="12" patternUnits="userSpaceOnUse">
<path d="M0 0H12V12H0z" fill="var(--grey)"/>
<path d="M0 0H6V12H0z" fill="var(--blue)" opacity=".55"/></pattern>
<linearGradient id="fading"><stop offset=".4" stop-color="#fff"/>
<stop offset="1" stop-color="#fff" stop-opacity="0"/></linearGradient>
<mask id="fade" maskContentUnits="objectBoundingBox">
<path d="M0 0H1V1H0z" fill="url(#fading)"/></mask>
</defs></svg>
)svg";

constexpr std::string_view key = R"svg(<ul class="key" aria-hidden="true">
<li><svg viewBox="0 0 30 14"><g class="bar blue">
<rect width="30" height="14"/></g></svg>holds then</li>
<li><svg viewBox="0 0 30 14"><g class="bar blue repeated">
<rect width="30" height="14"/></g></svg>another round of a cycle</li>
<li><svg viewBox="0 0 30 14"><g class="bar blue forever">
<rect width="30" height="14"/></g></svg>stays for ever</li>
<li><svg viewBox="0 0 30 14"><g class="bar waiting">
<rect x="1" y="1" width="28" height="12"/></g></svg>before its start</li>
</ul>
)svg";

class Page {
 public:
  explicit Page(const Facts& facts) : facts_(facts) {}
  std::string text();

 private:
  void addHead();
  void addSummary();
  void addFaults();
  void addTimelines();
  void addStates(const TableFacts& table);
  void addChanges();
  void addTables();
  void addLinks();
  void addListeners();

  void beginTable(std::initializer_list<const char*> headings);
  // Cells that are HTML already.
  void addRow(std::initializer_list<std::string> cells);
  void endTable() { text_ += "</tbody></table></div>\n"; }
  std::string time(std::int64_t second) const {
    return "<span title=\"second " + std::to_string(second) + "\">" + utcText(second) +
           "</span> <small>" + relativeText(second, facts_.now) + "</small>";
  }

  const Facts& facts_;
  std::string text_;
  std::vector<std::string> headings_;  // of the table that has begun
};

// A heading that begins with "#" is one of numbers.
void Page::beginTable(std::initializer_list<const char*> headings) {
  headings_.clear();
  text_ += "<div class=\"scroll\"><table><thead><tr>";
  for (const std::string heading : headings) {
    const bool isNumber = heading[0] == '#';
    headings_.push_back(heading.substr(isNumber ? 1 : 0));
    text_ += std::string("<th scope=\"col\"") + (isNumber ? " class=\"number\">" : ">") +
             heading.substr(isNumber ? 1 : 0) + "</th>";
  }
  text_ += "</tr></thead><tbody>\n";
}

void Page::addRow(std::initializer_list<std::string> cells) {
  text_ += "<tr>";
  std::size_t column = 0;
  for (const std::string& cell : cells) {
    const bool isNumber = cell.starts_with('#');
    const bool isTime = cell.starts_with("<span");
    const std::string content = cell.substr(isNumber ? 1 : 0);
    text_ += "<td data-label=\"" + headings_[column++] + "\"" +
             (isNumber ? " class=\"number\""
              : isTime ? " class=\"time\""
                       : "") +
             ">" + (content.empty() ? "" : "<div>" + content + "</div>") + "</td>";
  }
  text_ += "</tr>\n";
}

std::string Page::text() {
  addHead();
  addSummary();
  addFaults();
  if (facts_.isRead) {
    addTimelines();
    addChanges();
    addTables();
    addLinks();
    addListeners();
  }
  text_ +=
      "<footer>Made by velmora-tool report. All times are UTC.</footer>\n</main>\n</body>\n"
      "</html>\n";
  return std::move(text_);
}

void Page::addHead() {
  text_ =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
      "style-src 'unsafe-inline'; img-src data:\">\n<link rel=\"icon\" href=\"data:,\">\n"
      "<title>" +
      html(facts_.directory) + " – velmora</title>\n<style>";
  text_ += pageStyle;
  text_ += "</style>\n</head>\n<body>\n";
  text_ += patterns;
  text_ += "<main>\n<header>\n<h1>" + html(facts_.directory) + "</h1>\n<p>As of " +
           utcText(facts_.now) + " UTC, second " + std::to_string(facts_.now) + ".</p>\n";
}

void Page::addSummary() {
  std::int64_t rows = 0;
  std::size_t timed = 0;
  for (const TableFacts& table : facts_.tables) {
    rows += table.shape.rows;
    timed += table.timedCount;
  }
  const auto add = [this](const char* what, const std::string& value) {
    text_ += std::string("<div><dt>") + what + "</dt><dd>" + value + "</dd></div>\n";
  };
  text_ += "<dl>\n";
  if (facts_.isRead) {
    add("Tables", std::to_string(facts_.tables.size()));
    add("Rows", std::to_string(rows));
    add("Timed values", std::to_string(timed));
    add("Next change",
        facts_.changes.empty() ? "none" : relativeText(facts_.changes.front().second, facts_.now));
  }
  add("On disk", sizeText(facts_.bytes));
  add("Faults", facts_.faults.empty() ? "none" : std::to_string(facts_.faults.size()));
  text_ += "</dl>\n</header>\n";
}

void Page::addFaults() {
  if (facts_.faults.empty()) return;
  text_ += "<section class=\"bad\">\n<h2>Faults in the files</h2>\n";
  if (!facts_.isRead)
    text_ +=
        "<p>The database cannot be opened; velmora-tool repair saves what "
        "can be read.</p>\n";
  beginTable({"File", "#Byte", "What that means"});
  for (const Fault& fault : facts_.faults) {
    addRow({"<code>" + html(fault.file) + "</code>",
            fault.offset < 0 ? "" : "#" + std::to_string(fault.offset), html(fault.meaning)});
  }
  endTable();
  text_ += "</section>\n";
}

void Page::addTimelines() {
  text_ += "<section>\n<h2>Timed values</h2>\n";
  const bool isAny = std::any_of(facts_.tables.begin(), facts_.tables.end(),
                                 [](const TableFacts& table) { return !table.cells.empty(); });
  text_ += isAny ? std::string(key) : "<p>There are none.</p>\n";
  for (const TableFacts& table : facts_.tables) {
    if (table.cells.empty()) continue;
    text_ += "<h3>" + html(table.shape.name) + "</h3>\n";
    if (table.cells.size() < table.timedCount) {
      text_ += "<p>" + std::to_string(table.cells.size()) + " of " +
               std::to_string(table.timedCount) + ": those that change next.</p>\n";
    }
    text_ += timelineSvg(table, facts_.now, false) + timelineSvg(table, facts_.now, true);
    addStates(table);
  }
  text_ += "</section>\n";
}

void Page::addStates(const TableFacts& table) {
  text_ += "<details><summary>The same as a table</summary>\n";
  beginTable({"Row", "Column", "Start", "States", "Next change"});
  for (const TimedCell& cell : table.cells) {
    std::string states;
    for (std::size_t i = 0; i < cell.texts.size(); ++i) {
      const bool staysForEver = !cell.plan.cycles && i + 1 == cell.texts.size();
      states += (i == 0 ? "" : ", then ") + ("<b>" + html(cell.texts[i])) + "</b>" +
                (staysForEver ? "" : " for " + durationText(cell.plan.states[i].seconds));
    }
    addRow({html(cell.row), html(cell.column), time(cell.plan.start),
            states + (cell.plan.cycles ? ", and again" : ""),
            cell.nextChange ? time(*cell.nextChange) : "none"});
  }
  endTable();
  text_ += "</details>\n";
}

void Page::addChanges() {
  text_ += "<section>\n<h2>Next changes</h2>\n";
  if (facts_.changes.empty()) {
    text_ += "<p>Nothing changes by time alone.</p>\n</section>\n";
    return;
  }
  text_ += "<p>" +
           (facts_.changes.size() < facts_.changeCount
                ? std::to_string(facts_.changes.size()) + " of " +
                      std::to_string(facts_.changeCount) + ", the first ones. "
                : std::string()) +
           "The next change of each timed value that has one.</p>\n";
  beginTable({"When", "Table", "Row", "Column", "Becomes", "How"});
  for (const Change& change : facts_.changes) {
    addRow({time(change.second), html(change.table), html(change.row), html(change.column),
            "<b>" + html(change.value) + "</b>", change.cycles ? "cycles" : "once"});
  }
  endTable();
  text_ += "</section>\n";
}

void Page::addTables() {
  text_ += "<section>\n<h2>Tables</h2>\n";
  if (facts_.tables.empty()) text_ += "<p>There are none.</p>\n";
  if (!facts_.tables.empty()) {
    beginTable({"Table", "#Rows", "#On disk", "#Timed", "Columns"});
    for (const TableFacts& table : facts_.tables) {
      std::string columns;
      for (const TableColumn& column : table.shape.columns) {
        columns += (columns.empty() ? "" : ", ") + html(column.name) + " <small>" +
                   html(columnText(column)) + "</small>";
      }
      addRow({"<b>" + html(table.shape.name) + "</b>", "#" + std::to_string(table.shape.rows),
              "#" + sizeText(table.bytes), "#" + std::to_string(table.timedCount), columns});
    }
    endTable();
  }
  text_ += "</section>\n";
}

void Page::addLinks() {
  text_ += "<section>\n<h2>Links</h2>\n";
  if (facts_.links.empty()) {
    text_ += "<p>There are none.</p>\n</section>\n";
    return;
  }
  text_ += linkMapSvg(facts_, false) + linkMapSvg(facts_, true);
  beginTable({"Child", "Parent"});
  for (const LinkShape& link : facts_.links) {
    addRow({html(link.childTable + "." + link.childColumn),
            html(link.parentTable + "." + link.parentColumn)});
  }
  endTable();
  text_ += "</section>\n";
}

void Page::addListeners() {
  text_ += "<section>\n<h2>Listeners</h2>\n";
  if (facts_.listeners.empty()) {
    text_ += "<p>There are none.</p>\n</section>\n";
    return;
  }
  beginTable({"Table", "Event", "Target", "Filter"});
  for (const ListenerShape& listener : facts_.listeners) {
    addRow({html(listener.table), html(listener.event), html(listener.target),
            listener.filter.empty() ? "" : "<code>" + html(listener.filter) + "</code>"});
  }
  endTable();
  text_ += "</section>\n";
}

}  // namespace

std::string pageOf(const Facts& facts) { return Page(facts).text(); }

}  // namespace tool
