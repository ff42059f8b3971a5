// The tables that the workloads run on, their statements in both dialects, and values that are the
// same in every process: each follows from its row's number alone.
#pragma once

#include <cstdint>
#include <memory>

#include "engine.h"

namespace bench {

// A number that looks random and depends on nothing but its two arguments.
std::uint64_t scatter(std::uint64_t index, std::uint64_t series = 0);
// Such a number from 0 to count - 1.
int scatterBelow(int count, int index, int series);

// Table items (id, name, age, score): age has 100 values, a name of few 1000, others are unique.
Values itemValues(int index);
Values itemValuesWithFewNames(int index);

extern const Statement createItems;
extern const Statement insertItem;       // ?1 name, ?2 age, ?3 score
extern const Statement selectItemByKey;  // ?1 id
extern const Statement updateItemByKey;  // ?1 score, ?2 id
extern const Statement deleteItemByKey;  // ?1 id

// What velmora does by itself: the others leave in their logs what is not checkpointed by a
// command.
extern const Statement noAutomaticCheckpoint;

// Makes and fills items; its name gets the suffix.
void fillItems(Engine& engine, int count, Values (*values)(int) = itemValues,
               const std::string& suffix = "");
std::shared_ptr<Engine> openItems(Mode mode, int count, Values (*values)(int) = itemValues);

// Table parents has the columns and values of items. Table children is (id, parent_id, name).
void fillParents(Engine& engine, int count, const std::string& suffix = "");
extern const Statement insertChild;  // ?1 parent_id, ?2 name

// The statement with the suffix behind the names of the tables above.
Statement onTables(Statement statement, const std::string& suffix);

Batch makeBatch(int count, const std::function<Values(int)>& values);
// The time of one command of the batch, on average.
double timeOne(Engine& engine, const Statement& statement, const Batch& batch);
// The answers to the statement with each of the values, one behind the other.
std::string answersOf(Engine& engine, const Statement& statement, const Batch& batch);

}  // namespace bench
