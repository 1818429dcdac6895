// Files read whole into memory.

#include <nv/file.h>

#include <unistd.h>
#include <cerrno>

#include "regular_file.h"

namespace {

constexpr std::size_t kLargestFile = 16u << 20;

}  // namespace

RESULTX FileX::Load(const std::string& path, std::string& out) {
    boost::system::error_code error;
    struct stat status {};
    const nv::Descriptor file = nv::openRegularFile(path, error, &status);
    if (error || static_cast<std::uint64_t>(status.st_size) > kLargestFile) return -1;

    // One byte more than expected shows the end in the last read, and a file that is growing.
    std::string text(static_cast<std::size_t>(status.st_size) + 1, '\0');
    std::size_t filled = 0;
    for (;;) {
        const ssize_t count = ::read(file.get(), text.data() + filled, text.size() - filled);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return -1;
        if (count == 0) break;
        filled += static_cast<std::size_t>(count);
        if (filled > kLargestFile) return -1;
        if (filled == text.size()) text.resize(2 * filled);
    }
    text.resize(filled);
    out = std::move(text);
    return static_cast<RESULTX>(out.size());
}
