#pragma once

#include <string>
#include <utility>
#include <vector>

namespace depot {

/// What is wrong with a package, or may be.
struct Finding {
    enum class Severity {
        kWarning,  ///< it works, though perhaps not as its author thinks
        kError,    ///< it must not be published
    };
    Severity severity;
    std::string file;     ///< the package's file name
    std::string rule;     ///< which rule, one word for programs: "name", "archive", ...
    std::string message;  ///< the reason, for the author
};

using Findings = std::vector<Finding>;

inline bool hasErrors(const Findings& findings) {
    for (const Finding& each : findings) {
        if (each.severity == Finding::Severity::kError) return true;
    }
    return false;
}

/// Adds findings about one file and rule.
class FindingList {
  public:
    FindingList(Findings& findings, std::string file, std::string rule)
        : findings_(findings), file_(std::move(file)), rule_(std::move(rule)) {}
    void error(std::string message) { add(Finding::Severity::kError, std::move(message)); }
    void warning(std::string message) { add(Finding::Severity::kWarning, std::move(message)); }

  private:
    void add(Finding::Severity severity, std::string message) {
        findings_.push_back({severity, file_, rule_, std::move(message)});
    }

    Findings& findings_;
    const std::string file_;
    const std::string rule_;
};

}  // namespace depot
