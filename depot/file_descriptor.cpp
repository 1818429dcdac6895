#include "depot/file_descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace depot {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

FileDescriptor::~FileDescriptor() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

void openStandardStreams() {
    int descriptor = ::open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = ::open("/dev/null", O_RDWR);
    if (descriptor >= 0) ::close(descriptor);
}

Result<std::string> readAtMost(const FileDescriptor& file, std::size_t limit) {
    std::string text;
    std::array<char, 16 * 1024> buffer{};
    while (true) {
        const ssize_t count = ::read(file.get(), buffer.data(), buffer.size());
        if (count == 0) return text;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0)
            return failure(std::string("cannot be read: ") +
                           std::generic_category().message(errno));
        if (static_cast<std::size_t>(count) > limit - text.size())
            return failure("is larger than " + std::to_string(limit) + " bytes");
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace depot
