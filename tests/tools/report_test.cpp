// report: the page is the same for the same second, holds nothing that runs or is fetched, and its
// bars stand where the schedule says. What a browser makes of it is asked of Chromium.
#include <cmath>
#include <cstdlib>
#include <map>
#include <regex>
#include <set>

#include "rich_database.h"
#include "velmora/velmora.hpp"

namespace velmora_tests {
namespace {

constexpr std::int64_t now = 1'000'000'000;

struct Bar {
  std::int64_t from, until;
  std::string value, classes;
  double x, width;
};

class Report : public RichDatabase {
 protected:
  std::string page(const std::string& database) const {
    return outputOf({"report", database, "--now", std::to_string(now)});
  }

  // The wide picture of a table.
  static std::string picture(const std::string& page, const std::string& table) {
    const std::size_t title = page.find("id=\"" + table + "-wide-title\"");
    const std::size_t begin = page.rfind("<svg", title);
    return page.substr(begin, page.find("</svg>", begin) - begin);
  }

  static double attribute(const std::string& svg, const std::string& name) {
    const std::size_t at = svg.find(name + "=\"") + name.size() + 2;
    return std::stod(svg.substr(at));
  }

  static std::vector<Bar> bars(const std::string& svg) {
    static const std::regex form(
        "<g class=\"bar ([^\"]*)\" data-from=\"([^\"]*)\" data-until=\"([^\"]*)\" "
        "data-value=\"([^\"]*)\">.*<rect x=\"([^\"]*)\" y=\"[^\"]*\" width=\"([^\"]*)\"");
    std::vector<Bar> found;
    for (std::sregex_iterator at(svg.begin(), svg.end(), form), end; at != end; ++at) {
      const std::smatch& match = *at;
      found.push_back({std::stoll(match[2]), std::stoll(match[3]), match[4], match[1],
                       std::stod(match[5]), std::stod(match[6])});
    }
    return found;
  }

  int shell(const std::string& command) const {
    return WEXITSTATUS(std::system(("cd '" + at("").string() + "' && " + command).c_str()));
  }
};

TEST_F(Report, isTheSameForTheSameSecond) {
  makeRich("rich");
  const std::string first = page("rich");
  EXPECT_EQ(page("rich"), first);
  EXPECT_EQ(outputOf({"report", "rich", "--now", std::to_string(now), "-o", "page.html"}), "");
  EXPECT_EQ(read("page.html"), first);
  EXPECT_NE(outputOf({"report", "rich", "--now", std::to_string(now + 1)}), first);
}

TEST_F(Report, holdsNothingThatRunsOrIsFetched) {
  const std::string hostile = "</title></svg><script>alert(\"1\")</script>&lt;\x1b[31m\u202e";
  make("evil", {"CREATE TABLE t name string(100) state string(100) 2",
                "INSERT INTO t name = '" + hostile + "' state = ('" + hostile +
                    "' --> 'onload=''x''' @ 1 h)",
                "LISTEN t.INSERT --> '" + hostile + "' WHERE name = '<script>'"});
  const std::string page = this->page("evil");
  for (const char* word : {"<script", "alert(\"", "src=", "href=\"http", "url(http", "\x1b",
                           "\u202e", "onload='", "@import"}) {
    EXPECT_EQ(page.find(word), std::string::npos) << word;
  }
  EXPECT_NE(page.find("&lt;script&gt;alert(&quot;1&quot;)&lt;/script&gt;&amp;lt;␛[31m"),
            std::string::npos);
}

TEST_F(Report, barsStandWhereTheScheduleSays) {
  makeRich("rich");
  const std::string page = this->page("rich");
  velmora::Database database(at("rich").string(), velmora::options(VELMORA_READ_ONLY));
  for (const std::string table : {"lights", "places", "stays"}) {
    const std::string svg = picture(page, table);
    const auto from = static_cast<std::int64_t>(attribute(svg, "data-from"));
    const auto until = static_cast<std::int64_t>(attribute(svg, "data-until"));
    const double left = attribute(svg, "data-left");
    const double scale = attribute(svg, "data-width") / static_cast<double>(until - from);
    std::set<std::int64_t> edges;
    const std::vector<Bar> all = bars(svg);
    EXPECT_GE(all.size(), 3U);
    for (const Bar& bar : all) {
      edges.insert(bar.from);
      const auto begin = static_cast<double>(std::max(bar.from, from) - from);
      const auto end = static_cast<double>(std::min(bar.until, until) - from);
      EXPECT_NEAR(bar.x, left + begin * scale, 0.011);
      EXPECT_NEAR(bar.width, (end - begin) * scale, 0.011);
    }
    if (until - now > 1'000'000) continue;  // quick cycles among them change too often
    const std::string schedule =
        "SHOW SCHEDULE FROM " + table + " UNTIL " + std::to_string(until - 1);
    for (const velmora::Row& row : database.run(schedule)) {
      EXPECT_TRUE(edges.contains(row.get<std::int64_t>("second")))
          << table << row.get<std::int64_t>("second");
    }
  }
}

// Each bar has the value that the engine answers in its first and last second, and at no second
// does another one stand there.
TEST_F(Report, barsHaveTheValuesOfTheirSeconds) {
  make("one", {"CREATE TABLE t colour string(6) 3",
               "INSERT INTO t colour = ('amber' --> 'red' @ 5 s --> 'green' @ 30 s c) "
               "#TIME# 999999990"});
  make("two", {"CREATE TABLE t colour string(6) 3",
               "INSERT INTO t colour = ('amber' --> 'red' @ 50 s --> 'green' @ 30 s) "
               "#TIME# 1000000010"});
  for (const std::string name : {"one", "two"}) {
    const std::string svg = picture(page(name), "t");
    const auto from = static_cast<std::int64_t>(attribute(svg, "data-from"));
    const auto until = static_cast<std::int64_t>(attribute(svg, "data-until"));
    const std::vector<Bar> all = bars(svg);
    velmora::Database database(at(name).string(), velmora::options(VELMORA_READ_ONLY));
    for (std::int64_t second = from; second < until; ++second) {
      std::string drawn;
      for (const Bar& bar : all) {
        if (bar.from <= second && second < bar.until) drawn += bar.value;
      }
      const std::string query = "SELECT colour FROM t AT " + std::to_string(second);
      ASSERT_EQ(drawn, database.run(query)[0].get<std::string>("colour")) << second;
    }
  }
}

TEST_F(Report, tellsTheLimit) {
  std::string commands = "CREATE TABLE t id ApexInt s string(9) 2\n";
  for (int i = 0; i < 40; ++i) {
    commands += "INSERT INTO t s = ('a' --> 'b' @ " + std::to_string(1000 - i) + " s)\n";
  }
  write("commands", commands);
  run({"run", "many", "commands", "--create", "--atomic", "--now", std::to_string(now)});
  const std::string page =
      outputOf({"report", "many", "--now", std::to_string(now), "--rows", "5"});
  EXPECT_NE(page.find("<p>5 of 40: those that change next.</p>"), std::string::npos);
  EXPECT_NE(page.find("<p>5 of 40, the first ones. "), std::string::npos);
  EXPECT_EQ(bars(picture(page, "t")).size(), 15U);
}

TEST_F(Report, ofADamagedDatabaseTellsTheFaults) {
  makeRich("rich");
  std::string bytes = read("rich/Mixed.bin");
  bytes[bytes.size() / 2] ^= 1;
  write("rich/Mixed.bin", bytes);
  const ToolRun result = run({"report", "rich", "--now", std::to_string(now)});
  EXPECT_EQ(result.code, 1);
  EXPECT_NE(result.output.find("<h2>Faults in the files</h2>"), std::string::npos);
  EXPECT_NE(result.output.find("<code>Mixed.bin</code>"), std::string::npos);
  EXPECT_EQ(run({"report", "nowhere"}).code, 3);
}

// Measures the page in a frame of a phone's width and one of a screen's.
constexpr const char* measuringPage = R"html(<!DOCTYPE html><body>
<iframe src="page.html" style="width:390px;height:2000px"></iframe>
<iframe src="page.html" style="width:1080px;height:2000px"></iframe>
<pre id="found"></pre><script>
onload = () => { for (const frame of document.querySelectorAll("iframe")) {
  const page = frame.contentDocument; let worst = 0, count = 0;
  for (const svg of page.querySelectorAll("svg.timeline")) {
    const whole = svg.getBoundingClientRect(); if (whole.width === 0) continue;
    const scale = whole.width / svg.viewBox.baseVal.width, d = svg.dataset;
    const x = s => whole.left + scale * (+d.left + d.width *
      (Math.min(Math.max(s, d.from), d.until) - d.from) / (d.until - d.from));
    for (const bar of svg.querySelectorAll(".bar[data-from]")) {
      const box = bar.querySelector("rect").getBoundingClientRect(); ++count;
      worst = Math.max(worst, Math.abs(box.left - x(+bar.dataset.from)),
                       Math.abs(box.right - x(+bar.dataset.until))); } }
  const shown = name => page.defaultView.getComputedStyle(page.querySelector(name)).display;
  found.textContent += [frame.clientWidth, page.documentElement.scrollWidth <= frame.clientWidth,
    count > 10, worst < 1.6, shown("svg.wide"), shown("svg.narrow"),
    page.defaultView.performance.getEntriesByType("resource").length].join(" ") + ";"; } };
</script>)html";

TEST_F(Report, aBrowserShowsItAsItIsMeant) {
  if (shell("command -v chromium >/dev/null") != 0) GTEST_SKIP() << "no Chromium";
  makeRich("rich");
  write("page.html", page("rich"));
  write("measure.html", measuringPage);
  const std::string chromium =
      "timeout 120 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
      "--disable-background-networking --disable-component-update --disable-sync "
      "--allow-file-access-from-files --user-data-dir=profile --hide-scrollbars "
      "--enable-logging=stderr ";
  ASSERT_EQ(shell(chromium + "--dump-dom --virtual-time-budget=5000 measure.html >dom 2>said"), 0);
  const std::string dom = read("dom");
  const std::size_t begin = dom.find("<pre id=\"found\">") + 16;
  EXPECT_EQ(dom.substr(begin, dom.find("</pre>") - begin),
            "390 true true true none block 0;1080 true true true block none 0;");
  EXPECT_EQ(read("said").find("CONSOLE"), std::string::npos) << read("said");
  const std::string picture = std::filesystem::path(VELMORA_TOOL).parent_path() / "report.png";
  EXPECT_EQ(
      shell(chromium + "--screenshot='" + picture + "' --window-size=1080,2000 page.html 2>said"),
      0);
  EXPECT_EQ(read("said").find("CONSOLE"), std::string::npos) << read("said");
}

}  // namespace
}  // namespace velmora_tests
