#pragma once

#include <optional>
#include <string>
#include <vector>

#include "depot/document.h"
#include "depot/publish/finding.h"
#include "depot/result.h"

namespace depot {

/// One package that was looked at.
struct CheckedPackage {
    std::string path;
    std::string filename;
    std::optional<Document> document;  ///< null when the package cannot be read at all
    Findings findings;
};

/// Looks at one package with its sidecar. Blocks; any thread.
CheckedPackage checkPackage(const std::string& path);

/// Whether one of them must not be published.
bool anyErrors(const std::vector<CheckedPackage>& packages);

/// The packages at `path`, a package or a folder of them, ascending by name. Names that begin with
/// a dot, sidecars and folders are passed over. Fails when there is no package or the folder
/// cannot be listed.
Result<std::vector<std::string>> packagesAt(const std::string& path);

}  // namespace depot
