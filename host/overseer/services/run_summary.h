#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "state/utc_time.h"

namespace overseer {

/// What became of one driver file in a run, the weakest first: of two reports the stronger stays.
enum class FileOutcome { kNotOffered, kExcluded, kCurrent, kHeldBack, kFailed, kUpdated };
inline constexpr FileOutcome kAllFileOutcomes[] = {
    FileOutcome::kUpdated, FileOutcome::kCurrent,  FileOutcome::kHeldBack,
    FileOutcome::kFailed,  FileOutcome::kExcluded, FileOutcome::kNotOffered};

/// "updated", "current", "held back", "failed", "excluded", "not offered"
std::string_view nameOf(FileOutcome outcome);

struct FileResult {
    std::string name;
    int versionBefore = 0;
    int versionAfter = 0;
    FileOutcome outcome = FileOutcome::kNotOffered;
    std::string reason;  ///< why it was held back or failed; empty otherwise
    std::optional<std::uint64_t> milliseconds;
};

/// One run of an agent.
struct RunSummary {
    bool forced = false;
    UtcMilliseconds started = 0;
    std::optional<UtcMilliseconds> ended;    ///< none while it runs
    std::vector<FileResult> files;           ///< in ascending order of names
    std::vector<std::string> queryFailures;  ///< reasons, as they came

    std::map<FileOutcome, std::size_t> counts() const;
};

/// Whether the catalogue could be reached, and when.
struct CatalogueContact {
    std::optional<UtcMilliseconds> lastReached;
    std::optional<UtcMilliseconds> lastFailure;
    std::string lastFailureReason;
};

/// What is kept of an agent's runs.
struct RunRecord {
    std::optional<RunSummary> lastRun;
    CatalogueContact contact;
};

/// JSON text of a record and back; nothing for a text that is none.
std::string toJsonText(const RunRecord& record);
std::optional<RunRecord> runRecordFromJsonText(const std::string& text);

}  // namespace overseer
