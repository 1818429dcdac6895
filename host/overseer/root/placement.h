#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "common/result.h"

namespace overseer {

/// Whether a file's content must be on the disk before its name is.
enum class Flush { kBefore, kNever };

/// Writes `text` to a hidden sibling and renames it over `target`, whose mode is kept: at every
/// instant a reader finds the old file or the new one, whole.
/// @param flush  kNever only for what is worthless to lose and is checked when it is read
/// @param siblingFolder  where the sibling stands meanwhile, on the same file system; the target's
///                       own folder when empty
Result<> writeInPlace(const boost::filesystem::path& target, const std::string& text, Flush flush,
                      const boost::filesystem::path& siblingFolder = {});

/// Puts a flushed copy of the regular file `source` in place of `target`; `source` stays.
Result<> copyInPlace(const boost::filesystem::path& source, const boost::filesystem::path& target);

/// Puts a second name of the regular file `source` in place of `target`, so that it takes no room;
/// a copy where the file systems differ or allow no more links.
Result<> linkInPlace(const boost::filesystem::path& source, const boost::filesystem::path& target);

/// Flushes a folder, so that the names in it survive a power cut.
Result<> flushFolder(const boost::filesystem::path& folder);

/// Brings everything written on the file system of `folder` to the disk, names included.
Result<> flushFileSystem(const boost::filesystem::path& folder);

}  // namespace overseer
