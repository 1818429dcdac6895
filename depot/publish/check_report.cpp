#include "depot/publish/check_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace depot {
namespace {

const char* severityName(Finding::Severity severity) {
    switch (severity) {
        case Finding::Severity::kWarning:
            return "warning";
        case Finding::Severity::kError:
            return "error";
    }
    return "";
}

std::size_t count(const std::vector<CheckedPackage>& packages, Finding::Severity severity) {
    std::size_t found = 0;
    for (const CheckedPackage& package : packages) {
        for (const Finding& finding : package.findings) found += finding.severity == severity;
    }
    return found;
}

std::string counted(std::size_t number, const char* noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

/// Text from a package for a line on a terminal.
std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](char character) {
            return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
        },
        '?');
    return text;
}

}  // namespace

std::string reportText(const std::vector<CheckedPackage>& packages) {
    std::string text;
    for (const CheckedPackage& package : packages) {
        for (const Finding& finding : package.findings)
            text += std::string(severityName(finding.severity)) + ": " +
                    printable(finding.file + ": " + finding.message) + "\n";
    }
    return text + counted(packages.size(), "package") + ", " +
           counted(count(packages, Finding::Severity::kError), "error") + ", " +
           counted(count(packages, Finding::Severity::kWarning), "warning") + "\n";
}

nlohmann::ordered_json reportJson(const std::vector<CheckedPackage>& packages) {
    nlohmann::ordered_json findings = nlohmann::ordered_json::array();
    for (const CheckedPackage& package : packages) {
        for (const Finding& finding : package.findings)
            findings.push_back({{"file", finding.file},
                                {"severity", severityName(finding.severity)},
                                {"rule", finding.rule},
                                {"message", finding.message}});
    }
    return {{"packages", packages.size()},
            {"errors", count(packages, Finding::Severity::kError)},
            {"warnings", count(packages, Finding::Severity::kWarning)},
            {"findings", findings}};
}

}  // namespace depot
