#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "common/result.h"

/// Files that are whole at every instant and survive a power cut.
namespace overseer::durable_files {

/// Puts a file with this content in place of what is there, through a hidden sibling that is
/// flushed and renamed; the folder is flushed too.
Result<> put(const boost::filesystem::path& file, const std::string& content);

/// Flushes a folder, so that the names in it survive.
Result<> flushFolder(const boost::filesystem::path& folder);

}  // namespace overseer::durable_files
