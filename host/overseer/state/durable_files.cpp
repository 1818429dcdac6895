#include "state/durable_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

namespace overseer::durable_files {
namespace {

namespace fs = boost::filesystem;

constexpr const char* kSiblingPattern = ".put-XXXXXX";

std::string reason() {
    return std::generic_category().message(errno);
}

/// Closes the descriptor, and removes the sibling unless it was put in place.
class Sibling {
  public:
    explicit Sibling(const fs::path& folder) : path_((folder / kSiblingPattern).string()) {
        descriptor_ = mkostemp(path_.data(), O_CLOEXEC);
    }
    ~Sibling() {
        if (descriptor_ < 0) return;
        close(descriptor_);
        if (!placed_) unlink(path_.c_str());
    }
    Sibling(const Sibling&) = delete;
    Sibling& operator=(const Sibling&) = delete;

    bool isOpen() const { return descriptor_ >= 0; }
    bool writeAll(const std::string& content) const {
        std::size_t done = 0;
        while (done < content.size()) {
            const ssize_t count = write(descriptor_, content.data() + done, content.size() - done);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) return false;
            done += static_cast<std::size_t>(count);
        }
        return fdatasync(descriptor_) == 0;
    }
    bool place(const fs::path& file) {
        placed_ = std::rename(path_.c_str(), file.c_str()) == 0;
        return placed_;
    }

  private:
    std::string path_;
    int descriptor_ = -1;
    bool placed_ = false;
};

}  // namespace

Result<> put(const fs::path& file, const std::string& content) {
    Sibling sibling(file.parent_path());
    if (!sibling.isOpen() || !sibling.writeAll(content) || !sibling.place(file))
        return failure("cannot write {}: {}", file.string(), reason());
    return flushFolder(file.parent_path());
}

Result<> flushFolder(const fs::path& folder) {
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool flushed = descriptor >= 0 && fsync(descriptor) == 0;
    const std::string why = flushed ? std::string() : reason();
    if (descriptor >= 0) close(descriptor);
    if (!flushed) return failure("cannot flush the folder {}: {}", folder.string(), why);
    return {};
}

}  // namespace overseer::durable_files
