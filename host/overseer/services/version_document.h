#pragma once

#include <string>

namespace overseer {

/// `<versions><version name="Overseer" version="major.minor.build"/>…</versions>`
/// @param version  the host's, see hostVersion
std::string versionDocument(const std::string& version);

/// The version of the host that runs, "major.minor.build".
std::string hostVersion();

}  // namespace overseer
