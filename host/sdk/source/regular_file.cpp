#include <nvhost/regular_file.h>

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <utility>

namespace nv::hosting {

namespace {

constexpr std::size_t kLargestFile = 16u << 20;

}  // namespace

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

std::string readRegularFile(const std::string& path, boost::system::error_code& error) {
    struct stat status {};
    const Descriptor file = openRegularFile(path, error, &status);
    if (error) return {};
    const auto tooLarge = make_error_code(boost::system::errc::file_too_large);
    if (static_cast<std::uint64_t>(status.st_size) > kLargestFile) {
        error = tooLarge;
        return {};
    }
    // One byte more than expected shows the end in the last read, and a file that is growing.
    std::string text(static_cast<std::size_t>(status.st_size) + 1, '\0');
    std::size_t filled = 0;
    for (;;) {
        const ssize_t count = ::read(file.get(), text.data() + filled, text.size() - filled);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) error = lastError();
        if (count <= 0) break;
        filled += static_cast<std::size_t>(count);
        if (filled > kLargestFile) error = tooLarge;
        if (error) break;
        if (filled == text.size()) text.resize(2 * filled);
    }
    text.resize(error ? 0 : filled);
    return text;
}

}  // namespace nv::hosting
