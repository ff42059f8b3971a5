// See common.h.
#include "common.h"

#include <ctime>

#include "failure.h"
#include "output/text.h"
#include "time_point.h"

namespace tool {
namespace {

constexpr std::pair<Format, const char*> formats[] = {
    {Format::box, "box"},     {Format::csv, "csv"},           {Format::json, "json"},
    {Format::jsonl, "jsonl"}, {Format::markdown, "markdown"}, {Format::line, "line"}};

}  // namespace

std::int64_t Common::second() const { return now.value_or(std::time(nullptr)); }

Format formatNamed(const std::string& name) {
  for (const auto& [format, known] : formats) {
    if (name == known) return format;
  }
  throw Failure(exitWrongUse, "No format '" + visible(name) +
                                  "'; there are box, csv, json, jsonl, markdown, line");
}

void addDirectory(CLI::App& app, Common& common) {
  app.add_option("DIRECTORY", common.directory, "The directory of the database")->required();
}

void addOptions(CLI::App& app, Common& common) {
  app.add_option_function<std::string>(
         "--format", [&common](const std::string& name) { common.format = formatNamed(name); },
         "box, csv, json, jsonl, markdown or line; usual are box on a terminal and csv elsewhere")
      ->type_name("FORMAT");
  app.add_option_function<std::string>(
         "--now",
         [&common](const std::string& time) { common.now = secondOf(time, std::time(nullptr)); },
         "What is taken for now, a time as in `velmora-tool at --help`")
      ->type_name("TIME");
}

}  // namespace tool
