// See loader.h.
#include "load/loader.h"

#include <cerrno>

#include "copy/literals.h"
#include "failure.h"
#include "interrupt.h"
#include "output/output.h"
#include "output/text.h"

namespace tool {
namespace {

constexpr std::size_t rowsAtOnce = 4096;

std::string insertCommand(const LoadPlan& plan) {
  std::string text = "INSERT INTO " + plan.table.name;
  for (const Target& target : plan.targets) text += " " + target.column.name + " = ?";
  return text;
}

}  // namespace

Loader::Loader(velmora::Database& database, const Input& input, const LoadOptions& options,
               const LoadPlan& plan)
    : database_(database), input_(input), options_(options), plan_(plan) {}

void Loader::run() {
  try {
    velmora::Transaction transaction(database_);
    if (plan_.isNew) database_.run(createCommand(plan_.table));
    load();
    transaction.commit();
  } catch (const BadInput& bad) {
    throw Failure(exitFailed, input_.place(bad.offset) + ": " + bad.what());
  }
  if (!rejects_.is_open()) return;
  rejects_.close();
  if (!rejects_) throwSystem(visible(options_.rejects), errno);
}

void Loader::load() {
  velmora::Statement insert = database_.prepare(insertCommand(plan_));
  Records records(input_, options_.form);
  Progress progress;
  TextRoom room;
  for (bool isMore = true; isMore;) {
    try {
      isMore = records.next(room);
      if (isMore) addRow(records);
    } catch (const BadInput& bad) {
      reject(bad.offset, records.record(), bad.what());
    }
    if (rows_.size() < rowsAtOnce && isMore) continue;
    insertRows(insert);
    room.clear();
    checkInterrupt();
    progress.tell("load", records.offset(), input_.content().size());
  }
}

void Loader::addRow(const Records& records) {
  checkWidth(records);
  const std::size_t before = values_.size();
  const std::span<const Field> fields = records.fields();
  try {
    for (const Target& target : plan_.targets) {
      // A name that only later objects have is not in this one.
      values_.push_back(target.field < fields.size() ? valueOf(fields[target.field], target)
                                                     : velmora_value{});
    }
  } catch (...) {
    values_.resize(before);
    throw;
  }
  rows_.push_back({records.offset(), records.record()});
}

void Loader::insertRows(velmora::Statement& insert) {
  if (!rows_.empty()) {
    try {
      insert.runMany(values_, rows_.size());
      loaded_ += rows_.size();
    } catch (const velmora::Error& error) {
      if (error.code() == VELMORA_INTERRUPTED) throw;
      insertSingly(insert);
    }
  }
  values_.clear();
  rows_.clear();
}

// None of the rows is in the table; which one is to blame?
void Loader::insertSingly(velmora::Statement& insert) {
  const std::size_t width = plan_.targets.size();
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    try {
      insert.runMany({&values_[i * width], width}, 1);
      ++loaded_;
    } catch (const velmora::Error& error) {
      if (error.code() == VELMORA_INTERRUPTED) throw;
      reject(rows_[i].offset, rows_[i].record, error.what());
    }
  }
}

void Loader::reject(std::size_t offset, std::string_view record, const std::string& reason) {
  if (options_.rejects.empty()) throw BadInput(offset, reason);
  if (!rejects_.is_open()) {
    rejects_.open(options_.rejects, std::ios::binary);
    if (!rejects_) throwSystem(visible(options_.rejects), errno);
    rejects_ << "line,reason,record\n";
  }
  while (record.ends_with('\n') || record.ends_with('\r')) record.remove_suffix(1);
  std::string text = std::to_string(input_.line(offset)) + ",";
  appendCsvText(text, reason);
  text += ",";
  appendCsvText(text, record);
  rejects_ << text << "\n";
  ++rejected_;
}

}  // namespace tool
