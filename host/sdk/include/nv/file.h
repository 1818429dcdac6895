#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>
#include <string>

#include <nv/result.h>

/// Whole files.
class FileX {
  public:
    /// Reads a regular file whole into `out`; its size in bytes (at most INT32_MAX) or a negative
    /// value, with `out` untouched, when it is none, cannot be read or is over 16 MB.
    static RESULTX Load(const std::string& path, std::string& out);
};

namespace nv::file {

/// Puts `source` in place of `target`, so that a reader finds the old file or the new one whole.
///
/// When both lie on one file system the source itself is flushed and renamed over the target (and
/// is gone afterwards), else it is copied to a hidden sibling first. The mode of the replaced file
/// is kept. Both ends must be regular files; `target` may be absent. A failure is logged with path
/// and reason at ERROR, leaves the target as it was, and is remembered for the target's name until
/// the next good replacement or until the host has refused one apply of that name.
void replace(const boost::filesystem::path& source, const boost::filesystem::path& target,
             boost::system::error_code& error) noexcept;

}  // namespace nv::file
