// Joining two tables on equal values: the right rows are filed under theirs, the left ones look
// their partners up. Pairs come in the order of the left rows, the partners of one in the order of
// the right rows.
#pragma once

#include <functional>

#include "filter.h"

namespace velmora::query {

struct JoinColumns {
  Place left;
  Place right;
};
// Throws Failure: notFound, syntax for two columns of one table, type.
JoinColumns joinColumns(const strict::Join& join, const Scope& scope);

// Some pairs, as many left rows as right ones; at most a chunk's rows.
struct Pairs {
  std::vector<std::int32_t> left;
  std::vector<std::int32_t> right;
};
// Calls use(pairs), until it returns false.
void forEachPair(const Scope& scope, const JoinColumns& on, std::span<const std::int32_t> left,
                 std::span<const std::int32_t> right, std::int64_t now, const QueryContext& context,
                 const std::function<bool(const Pairs&)>& use);

}  // namespace velmora::query
