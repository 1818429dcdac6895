#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "depot/publish/package_check.h"

namespace depot {

/// The findings for a person: a line each, then one that sums up.
std::string reportText(const std::vector<CheckedPackage>& packages);

/// The same for programs: {"packages": N, "errors": N, "warnings": N, "findings": [{"file",
/// "severity", "rule", "message"}]}.
nlohmann::ordered_json reportJson(const std::vector<CheckedPackage>& packages);

}  // namespace depot
