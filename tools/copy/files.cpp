// See files.h.
#include "copy/files.h"

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "copy/catalogue.h"
#include "copy/literals.h"
#include "failure.h"
#include "output/text.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

class FileWriter {
 public:
  explicit FileWriter(const fs::path& path) : path_(path), file_(path, std::ios::binary) {}
  void write(std::string_view text) {
    file_.write(text.data(), static_cast<std::streamsize>(text.size()));
  }
  void finish() {
    file_.close();
    if (!file_) throwSystem(visible(path_.string()), errno);
  }

 private:
  fs::path path_;
  std::ofstream file_;
};

void writeResult(const fs::path& path, Format format, const velmora::Result& result) {
  std::vector<Column> columns;
  std::string text;
  for (std::size_t i = 0; i < result.columns(); ++i) {
    columns.push_back(
        {result.columnName(i), result.columnType(i), result.declaredType(i) == "float"});
    if (format == Format::csv) text += (i == 0 ? "" : ",") + columns[i].name;
  }
  FileWriter file(path);
  if (format == Format::csv) file.write(text + "\n");
  std::vector<velmora_value> values(columns.size());
  for (std::size_t row = 0; row < result.size(); ++row) {
    result.values(row, 1, values);
    text.clear();
    if (format == Format::csv) {
      appendCsvRow(text, values, columns);
    } else {
      appendJsonRow(text, values, columns);
      text += "\n";
    }
    file.write(text);
  }
  file.finish();
}

void writeSchema(const fs::path& path, const Catalogue& catalogue) {
  FileWriter file(path);
  for (const TableShape& table : catalogue.tables) file.write(createCommand(table) + ";\n");
  for (const LinkShape& link : catalogue.links) file.write(linkCommand(link) + ";\n");
  for (const ListenerShape& listener : catalogue.listeners) {
    file.write(listenCommand(listener) + ";\n");
  }
  file.finish();
}

void makeDirectory(const std::string& directory) {
  std::error_code error;
  fs::create_directories(directory, error);
  if (error) throwSystem(visible(directory), error.value());
  if (!fs::is_empty(directory)) {
    throw Failure(exitFailed, visible(directory) + ": the directory is not empty");
  }
}

}  // namespace

void writeFiles(velmora::Database& database, const std::string& directory, Format format) {
  makeDirectory(directory);
  const std::string ending = format == Format::csv ? ".csv" : ".jsonl";
  const Catalogue catalogue = readCatalogue(database);
  writeSchema(fs::path(directory) / "schema.vel", catalogue);
  for (const TableShape& table : catalogue.tables) {
    const fs::path path = fs::path(directory) / table.name;
    writeResult(path.string() + ending, format, database.run("SELECT * FROM " + table.name));
    const velmora::Result states = database.run("SHOW STATES FROM " + table.name);
    if (states.size() > 0) writeResult(path.string() + ".states" + ending, format, states);
  }
}

}  // namespace tool
