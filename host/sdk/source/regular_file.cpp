#include "regular_file.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <utility>

namespace nv {

Descriptor::~Descriptor() {
    if (isOpen()) ::close(number_);
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
}

int Descriptor::release() {
    return std::exchange(number_, -1);
}

boost::system::error_code lastError() {
    return {errno, boost::system::system_category()};
}

Descriptor openRegularFile(const std::string& path, boost::system::error_code& error,
                           struct stat* status) {
    Descriptor file(
        ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW));
    struct stat found {};
    if (!file.isOpen() || ::fstat(file.get(), &found) != 0) {
        error = lastError();
        return Descriptor();
    }
    if (!S_ISREG(found.st_mode)) {
        error = make_error_code(S_ISDIR(found.st_mode) ? boost::system::errc::is_a_directory
                                                       : boost::system::errc::invalid_argument);
        return Descriptor();
    }
    if (status != nullptr) *status = found;
    error.clear();
    return file;
}

}  // namespace nv
