#pragma once

#include <map>
#include <string>

namespace overseer {

/// `<versions><version name="Overseer" version="major.minor.build"/>…</versions>`
/// @param version  the host's, see hostVersion
/// @param others   further parts and their versions, listed behind the host
std::string versionDocument(const std::string& version,
                            const std::map<std::string, std::string>& others = {});

/// The version of the host that runs, "major.minor.build".
std::string hostVersion();

}  // namespace overseer
