// Files put in place of others: by renaming, so that a reader finds the old or the new one whole.

#include <nv/file.h>
#include <nvhost/regular_file.h>
#include <nvhost/replacement.h>

#include <fcntl.h>
#include <log4cplus/loggingmacros.h>
#include <sys/random.h>
#include <unistd.h>
#include <array>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <set>
#include <vector>

namespace nv {
namespace {

using hosting::Descriptor;
using hosting::lastError;
using hosting::openRegularFile;

using boost::filesystem::path;
using boost::system::error_code;

constexpr char kSiblingPrefix[] = ".put-";
constexpr std::size_t kSiblingDigits = 8;

/// Names of targets whose last replacement failed.
class FailureMarks {
  public:
    void set(const std::string& name) {
        const std::lock_guard<std::mutex> lock(mutex_);
        names_.insert(name);
    }

    bool clear(const std::string& name) {
        const std::lock_guard<std::mutex> lock(mutex_);
        return names_.erase(name) != 0;
    }

  private:
    std::mutex mutex_;
    std::set<std::string> names_;
};

FailureMarks& failureMarks() {
    static FailureMarks marks;
    return marks;
}

/// Permissions that the file at `target` has, or `otherwise` when none is there; an error when
/// something else is in the way.
mode_t modeAt(const path& target, mode_t otherwise, error_code& error) {
    struct stat status {};
    if (::lstat(target.c_str(), &status) != 0) {
        if (errno != ENOENT) error = lastError();
        return otherwise;
    }
    if (S_ISREG(status.st_mode)) return status.st_mode & 07777;
    error = make_error_code(S_ISDIR(status.st_mode) ? boost::system::errc::is_a_directory
                                                    : boost::system::errc::file_exists);
    return otherwise;
}

bool copyContent(int from, int to) {
    std::vector<char> piece(128u << 10);
    for (;;) {
        const ssize_t count = ::read(from, piece.data(), piece.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return count == 0;
        for (ssize_t written = 0; written < count;) {
            const ssize_t step =
                ::write(to, piece.data() + written, static_cast<std::size_t>(count - written));
            if (step < 0 && errno != EINTR) return false;
            if (step > 0) written += step;
        }
    }
}

void copyOver(const Descriptor& source, const path& target, mode_t mode, error_code& error) {
    const path sibling = target.parent_path() / hosting::siblingName();
    const Descriptor copy(
        ::open(sibling.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!copy.isOpen()) {
        error = lastError();
        return;
    }
    if (copyContent(source.get(), copy.get()) && ::fchmod(copy.get(), mode) == 0 &&
        ::fdatasync(copy.get()) == 0 && ::rename(sibling.c_str(), target.c_str()) == 0) {
        return;
    }
    error = lastError();
    ::unlink(sibling.c_str());
}

void moveOver(const Descriptor& source, const path& from, const path& target, mode_t mode,
              error_code& error) {
    if (::fchmod(source.get(), mode) != 0 || ::fdatasync(source.get()) != 0) {
        error = lastError();
        return;
    }
    if (::rename(from.c_str(), target.c_str()) == 0) return;
    if (errno == EXDEV) {
        copyOver(source, target, mode, error);
    } else {
        error = lastError();
    }
}

using Placing = void (*)(const Descriptor& source, const path& from, const path& target,
                         mode_t mode, error_code& error);

void place(const path& from, const path& target, Placing placing, error_code& error) {
    error.clear();
    struct stat status {};
    const Descriptor source = openRegularFile(from.string(), error, &status);
    if (error) return;
    const mode_t mode = modeAt(target, status.st_mode & 07777, error);
    if (!error) placing(source, from, target, mode, error);
}

/// Marks the target and logs, as far as there is memory to do so.
void remember(const path& source, const path& target, const error_code& error) noexcept {
    try {
        failureMarks().set(target.filename().string());
        LOG4CPLUS_ERROR(log4cplus::Logger::getRoot(),
                        "file: \"" << target.string() << "\" could not be replaced by \""
                                   << source.string() << "\": " << error.message());
    } catch (...) {  // NOLINT(bugprone-empty-catch): nobody is left to tell
    }
}

}  // namespace

namespace file {

void replace(const path& source, const path& target, error_code& error) noexcept {
    try {
        place(source, target, moveOver, error);
        const std::string name = target.filename().string();
        if (!error) {
            failureMarks().clear(name);
            return;
        }
        remember(source, target, error);
    } catch (...) {
        error = make_error_code(boost::system::errc::not_enough_memory);
        remember(source, target, error);
    }
}

}  // namespace file

namespace hosting {

bool takeReplacementFailure(const std::string& fileName) {
    return failureMarks().clear(fileName);
}

std::string siblingName() {
    std::array<unsigned char, kSiblingDigits / 2> bytes{};
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw boost::system::system_error(lastError(), "getrandom");
    }
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string name = kSiblingPrefix;
    for (const unsigned char byte : bytes) {
        name += kDigits[byte >> 4];
        name += kDigits[byte & 15];
    }
    return name;
}

bool isSiblingName(const std::string& name) {
    const std::size_t prefix = sizeof kSiblingPrefix - 1;
    return name.size() == prefix + kSiblingDigits && name.compare(0, prefix, kSiblingPrefix) == 0 &&
           name.find_first_not_of("0123456789abcdef", prefix) == std::string::npos;
}

void placeCopy(const path& source, const path& target, error_code& error) noexcept {
    const Placing copying = [](const Descriptor& opened, const path&, const path& to, mode_t mode,
                               error_code& reason) { copyOver(opened, to, mode, reason); };
    try {
        place(source, target, copying, error);
    } catch (...) {
        error = make_error_code(boost::system::errc::not_enough_memory);
    }
}

}  // namespace hosting
}  // namespace nv
