#pragma once

#include <string>

#include "depot/publish/finding.h"

namespace depot {

/// Finds what keeps the zip archive at `path` from being unpacked safely and completely: members
/// that lie outside the folder or cannot lie in one folder together, links out of it, other than
/// files, folders and links, passwords, more than 65,536 members or 1 GB, one that packs 1 MB or
/// more over 1000:1, and content that is damaged. Reads every member; blocks; any thread.
void checkArchive(const std::string& path, FindingList& findings);

/// Whether the member path `name` stays inside the folder that it is unpacked to.
bool staysInside(const std::string& name);

/// Whether a link at the member path `name` that points to `target` stays inside.
bool linkStaysInside(const std::string& name, const std::string& target);

}  // namespace depot
