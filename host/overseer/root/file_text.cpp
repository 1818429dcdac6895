#include "root/file_text.h"

#include <nvhost/regular_file.h>

#include "common/system_failure.h"

namespace overseer {

namespace errc = boost::system::errc;

Result<std::string> readText(const boost::filesystem::path& file) {
    boost::system::error_code error;
    std::string text = nv::hosting::readRegularFile(file.string(), error);
    if (error) return readFailure(file, error);
    return text;
}

tl::unexpected<Error> readFailure(const boost::filesystem::path& file,
                                  const boost::system::error_code& error) {
    if (error == errc::is_a_directory || error == errc::invalid_argument ||
        error == errc::too_many_symbolic_link_levels) {
        return failure("{}: not a regular file", file.string());
    }
    if (error == errc::file_too_large) return failure("{}: it is larger than 16 MB", file.string());
    if (error == errc::no_such_file_or_directory)
        return failure("{}: it is missing", file.string());
    return systemFailure(file.string(), error);
}

}  // namespace overseer
