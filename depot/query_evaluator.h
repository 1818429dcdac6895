#pragma once

#include <cstddef>
#include <vector>

#include "depot/query.h"
#include "depot/snapshot.h"

namespace depot {

/// A set of positions in a snapshot: true for the documents that are in it.
using DocumentSet = std::vector<bool>;

/// The documents of `snapshot` that match `query`.
DocumentSet evaluate(const Query& query, const Snapshot& snapshot);

/// The documents of `snapshot` that stand in `core`.
DocumentSet documentsOf(Core core, const Snapshot& snapshot);

}  // namespace depot
