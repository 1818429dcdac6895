#include "drivers/file_stamp.h"

#include <sys/stat.h>
#include <cerrno>

#include "root/file_text.h"

namespace overseer {

Result<FileStamp> FileStamp::of(const boost::filesystem::path& file) {
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0) {
        return readFailure(file, {errno, boost::system::system_category()});
    }
    if (!S_ISREG(status.st_mode)) return failure("{}: not a regular file", file.string());
    constexpr std::int64_t kPerSecond = 1'000'000'000;
    return FileStamp{static_cast<std::uint64_t>(status.st_size),
                     status.st_mtim.tv_sec * kPerSecond + status.st_mtim.tv_nsec};
}

bool FileStamp::isOf(const DriverRecord& record) const {
    return record.checkedNanoseconds != 0 && record.checkedSize == size &&
           record.checkedNanoseconds == nanoseconds;
}

}  // namespace overseer
