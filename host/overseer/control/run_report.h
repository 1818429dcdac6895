#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace overseer::control {

/// A moment of the wall clock, UTC, to the millisecond.
using Instant = std::chrono::time_point<std::chrono::system_clock, std::chrono::milliseconds>;

/// What came of one driver file in a run.
enum class Outcome {
    kUpdated,     ///< a newer package is in place and was applied
    kCurrent,     ///< the catalogue has nothing newer
    kHeldBack,    ///< there is a newer one that may not be installed here; `reason` says why
    kFailed,      ///< download, verification or apply failed, or the query for the file did
    kNotOffered,  ///< the catalogue answered and did not mention the file
    kExcluded,    ///< on the exclusion list
};

/// "updated", "current", "held back", "failed", "not offered", "excluded".
std::string_view toText(Outcome outcome);

/// One file's row of a run.
struct FileOutcome {
    std::string file;
    int versionBefore = 0;  ///< installed when the run began, 0 when none was
    int versionAfter = 0;   ///< installed now
    Outcome outcome = Outcome::kNotOffered;
    std::string reason;                        ///< empty where the outcome says all
    std::optional<std::int64_t> milliseconds;  ///< download to completion, where it was measured
};

enum class RunKind { kNormal, kForced };

/// The current or the last run of an agent.
struct RunReport {
    std::uint64_t id = 0;  ///< tells the runs of an agent apart; its start in milliseconds will do
    RunKind kind = RunKind::kNormal;
    Instant started{};
    std::optional<Instant> finished;  ///< nothing while it runs
    /// While it runs: the files that something is known of. Afterwards: every file of the run, in
    /// ascending byte order.
    std::vector<FileOutcome> files;
    std::vector<std::string> queryFailures;  ///< reason of each catalogue query that failed
};

/// How many files of a run came to each outcome; all outcomes, in the order of the enumeration.
struct OutcomeCount {
    Outcome outcome;
    std::size_t files;
};
std::vector<OutcomeCount> countOutcomes(const RunReport& report);

/// True when a file or a query of the run failed.
bool hasFailures(const RunReport& report);

}  // namespace overseer::control
