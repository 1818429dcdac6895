#pragma once

#include <map>
#include <string>
#include <vector>

#include "depot/publish/http_client.h"
#include "depot/publish/package_check.h"
#include "depot/result.h"

namespace depot {

/// What is published of one file.
struct PublishedVersion {
    int version = 0;
    std::string md5sum;
};

using PublishedVersions = std::map<std::string, PublishedVersion>;

/// Asks the catalogue at `base`, as controllers do, for these files. Files that it does not have
/// are missing in the result.
Result<PublishedVersions> askCatalogue(HttpClient& client, const std::string& base,
                                       const std::vector<std::string>& filenames);

/// Adds a finding where a package would not be newer than what is published under its name.
void compareVersions(CheckedPackage& package, const PublishedVersions& published);

}  // namespace depot
