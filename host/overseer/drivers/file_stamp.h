#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>

#include "common/result.h"
#include "state/driver_ledger.h"

namespace overseer {

/// What tells without reading it that a file is the one that was looked at before.
struct FileStamp {
    std::uint64_t size = 0;
    std::int64_t nanoseconds = 0;  ///< when it was changed

    /// Of a regular file, never of what a link leads to.
    static Result<FileStamp> of(const boost::filesystem::path& file);
    /// Whether it is that of the file which was last applied.
    bool isOf(const DriverRecord& record) const;
    bool operator==(const FileStamp&) const = default;
};

}  // namespace overseer
