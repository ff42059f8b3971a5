// The files of a database that handles use. Between two checkpoints nothing but the log changes, so
// what an open finds is what the last checkpoint wrote, and the log: the manifest,
// velmora.manifest, which each checkpoint writes together with all else, names every file of it
// with its size and CRC-32C, and a file that it does not name is none of the database's.
//
// What the fixed-width files cannot hold, nulls, long texts, timed values to the byte, lies in one
// further file a table, <table>.exact. Of floats the table file's four bytes count, not their
// decimals.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "../failure.h"
#include "../webhook.h"
#include "storage.h"

namespace velmora {

// What a directory holds.
enum class Contents : std::uint8_t {
  nothing,
  plain,   // files of the plain functions
  sealed,  // there is a manifest, or a checkpoint that will put one in its place, or it is lost
};
// Throws Failure: io.
Contents contentsOf(const Directory& directory);

struct SealedState {
  Tables tables;                // without links; an ApexInt column is its table's key
  std::vector<Relation> links;  // by child, each one's in the order in which they were made
  std::vector<Listener> listeners;
  std::uint64_t nextSequence = 1;  // of the log's first record
  std::int64_t second = 0;         // the latest that a command has run at
};

// Where a load, a copy or a check stands; returns false to have it stopped (Failure, interrupted).
using Progress = std::function<bool(std::uint64_t done, std::uint64_t total)>;
using ReportFault =
    std::function<void(const std::string& file, std::int64_t offset, const std::string& meaning)>;

// Reads what the manifest names, an interrupted checkpoint's files under the names that they will
// have, and changes nothing. Every fault goes to the report; what can be read in spite of it is
// there in the end. Throws Failure: io, interrupted.
SealedState loadSealed(const Directory& directory, const ReportFault& report,
                       const Progress& progress);
// The same for the files that the plain functions have left behind a checkpoint, without manifest;
// what their start would leave out is a fault, and so are commands in their log.
SealedState loadPlain(const Directory& directory, const ReportFault& report,
                      const Progress& progress);

// What goes to the files besides the tables.
struct SealedRest {
  const std::map<std::string, std::set<Listener>, std::less<>>& listeners;
  std::uint64_t nextSequence;
  std::int64_t second;
  bool areFilesDamaged = false;  // a load has found faults: what is there is not relied on
};
// A checkpoint failed and could not be taken back for certain: nothing may be written to the log
// any more, since it may be the new state that is found.
struct CheckpointInDoubt : Failure {
  explicit CheckpointInDoubt(const Failure& failure) : Failure(failure) {}
};
// Brings all files up to date and empties the log, all or nothing; also completes an interrupted
// checkpoint and removes files that the manifest before named and the new one does not. Throws
// Failure: io or full, interrupted; everything is then as it was, but for CheckpointInDoubt. What
// fails once the new state counts is done by the next checkpoint, or the next open.
void saveSealed(Tables& tables, const SealedRest& rest, const Directory& directory,
                const Progress& progress);
// Completes a checkpoint that was interrupted, and sweeps what is left over of one that was given
// up.
void finishSealed(const Directory& directory);
// Copies the files that the manifest names, and the log up to the size, into another directory, the
// manifest last; the copy is on the disk at the return. No checkpoint may run meanwhile.
void copySealed(const Directory& from, std::int64_t logSize, const Directory& to,
                const Progress& progress);
// Whether the tables can go into plain files alone and come back as they are.
bool fitsPlainFiles(const Tables& tables);
// Brings the files of the plain functions up to date, empties the log, and takes the manifest and
// the further files away, all or nothing. Throws as saveSealed does.
void unseal(Tables& tables, const SealedRest& rest, const Directory& directory);

}  // namespace velmora
