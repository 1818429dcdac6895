#pragma once

#include <boost/filesystem/path.hpp>
#include <map>
#include <string>

#include "common/result.h"

/// The readable copies of persisted nodes, one file for each agent. A name's bytes other than
/// letters, digits, `_`, `-` and inner dots stand as %XX, so that no name leaves the folder.
namespace overseer::agent_copies {

/// Puts a copy in place by rename, flushed before; makes the folder when it is missing.
Result<> write(const boost::filesystem::path& folder, const std::string& agent,
               const std::string& xml);
/// Every copy that holds well-formed XML, by agent name; others are passed over.
std::map<std::string, std::string> readAll(const boost::filesystem::path& folder);

}  // namespace overseer::agent_copies
