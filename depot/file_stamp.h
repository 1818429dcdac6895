#pragma once

#include <sys/stat.h>
#include <cstdint>

namespace depot {

/// What tells one state of a file from another without reading it.
struct FileStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t modifiedNanoseconds = 0;  ///< since the epoch

    bool operator==(const FileStamp&) const = default;
};

/// The stamp in what stat(2) and its kind answered.
inline FileStamp stampOf(const struct stat& status) {
    constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
    return {status.st_dev, status.st_ino, status.st_size,
            status.st_mtim.tv_sec * kNanosecondsPerSecond + status.st_mtim.tv_nsec};
}

}  // namespace depot
