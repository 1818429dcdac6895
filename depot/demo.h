#pragma once

#include <cstddef>
#include <string>

#include "depot/result.h"

namespace depot {

/// How many packages were written.
struct DemoCounts {
    std::size_t older = 0;
    std::size_t newer = 0;
};

/// Writes the sample packages below `folder`, which is made when it is not there: `older/` as a
/// controller has them, `newer/` as a catalogue serves them, sidecars included, and
/// `expected.json`, which says for each file what an update makes of it, and for each agent that is
/// not installed what adding it does. The same bytes each time; files of the same names are
/// replaced.
/// @param agentLibrary  a plug-in to be packed into the agent that brings one; without it, that
///                      agent is a device only
Result<DemoCounts> writeDemo(const std::string& folder, const std::string& agentLibrary = {});

}  // namespace depot
