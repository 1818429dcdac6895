#include "control/run_report.h"

#include <algorithm>
#include <array>

namespace overseer::control {
namespace {

constexpr std::array kOutcomes{Outcome::kUpdated, Outcome::kCurrent,    Outcome::kHeldBack,
                               Outcome::kFailed,  Outcome::kNotOffered, Outcome::kExcluded};

}  // namespace

std::string_view toText(Outcome outcome) {
    switch (outcome) {
        case Outcome::kUpdated:
            return "updated";
        case Outcome::kCurrent:
            return "current";
        case Outcome::kHeldBack:
            return "held back";
        case Outcome::kFailed:
            return "failed";
        case Outcome::kNotOffered:
            return "not offered";
        case Outcome::kExcluded:
            return "excluded";
    }
    return "failed";
}

std::vector<OutcomeCount> countOutcomes(const RunReport& report) {
    std::vector<OutcomeCount> counts;
    for (const Outcome outcome : kOutcomes) {
        const auto files =
            std::count_if(report.files.begin(), report.files.end(),
                          [outcome](const FileOutcome& file) { return file.outcome == outcome; });
        counts.push_back({outcome, static_cast<std::size_t>(files)});
    }
    return counts;
}

bool hasFailures(const RunReport& report) {
    return !report.queryFailures.empty() ||
           std::any_of(report.files.begin(), report.files.end(),
                       [](const FileOutcome& file) { return file.outcome == Outcome::kFailed; });
}

}  // namespace overseer::control
