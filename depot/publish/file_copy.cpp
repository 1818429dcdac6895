#include "depot/publish/file_copy.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>
#include <vector>

#include "depot/file_descriptor.h"

namespace depot {
namespace {

constexpr std::size_t kPiece = 256 * 1024;
constexpr mode_t kReadableByAll = 0644;

tl::unexpected<Error> systemFailure(const std::string& path, const char* what) {
    return failure(path + ": " + what + ": " + std::generic_category().message(errno));
}

class Md5 {
  public:
    Md5() : context_(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {
        valid_ = context_ && EVP_DigestInit_ex(context_.get(), EVP_md5(), nullptr) == 1;
    }
    void add(const char* data, std::size_t size) {
        valid_ = valid_ && EVP_DigestUpdate(context_.get(), data, size) == 1;
    }
    Result<std::string> finish() {
        std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
        unsigned length = 0;
        if (!valid_ || EVP_DigestFinal_ex(context_.get(), sum.data(), &length) != 1)
            return failure("the MD5 digest is not available in this OpenSSL");
        constexpr std::string_view kDigits = "0123456789abcdef";
        std::string text;
        for (unsigned at = 0; at < length; ++at) {
            text += kDigits[sum[at] >> 4];
            text += kDigits[sum[at] & 15];
        }
        return text;
    }

  private:
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context_;
    bool valid_ = false;
};

Result<void> writeAll(const FileDescriptor& file, const std::string& path, const char* data,
                      std::size_t size) {
    while (size > 0) {
        const ssize_t step = ::write(file.get(), data, size);
        if (step < 0 && errno == EINTR) continue;
        if (step < 0) return systemFailure(path, "cannot be written");
        data += step;
        size -= static_cast<std::size_t>(step);
    }
    return {};
}

Result<FileDescriptor> openForReading(const std::string& path) {
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) return systemFailure(path, "cannot be opened");
    if (!S_ISREG(status.st_mode)) return failure(path + ": is not a regular file");
    return file;
}

/// Reads to the end; every piece goes to the sum, and to `target` unless that is null.
Result<std::string> pump(const std::string& from, const FileDescriptor& source,
                         const std::string& to, const FileDescriptor* target) {
    Md5 sum;
    std::vector<char> piece(kPiece);
    while (true) {
        const ssize_t count = ::read(source.get(), piece.data(), piece.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return systemFailure(from, "cannot be read");
        if (count == 0) return sum.finish();
        const auto size = static_cast<std::size_t>(count);
        sum.add(piece.data(), size);
        if (target == nullptr) continue;
        if (auto written = writeAll(*target, to, piece.data(), size); !written)
            return tl::make_unexpected(written.error());
    }
}

Result<FileDescriptor> createNew(const std::string& path) {
    FileDescriptor file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kReadableByAll));
    // Whatever the publisher's mask is: the web server reads as somebody else.
    if (!file || ::fchmod(file.get(), kReadableByAll) != 0)
        return systemFailure(path, "cannot be made");
    return file;
}

}  // namespace

Result<std::string> copyFile(const std::string& from, const std::string& to, std::int64_t time) {
    const auto source = openForReading(from);
    if (!source) return tl::make_unexpected(source.error());
    const auto target = createNew(to);
    if (!target) return tl::make_unexpected(target.error());
    auto sum = pump(from, *source, to, &*target);
    if (!sum) return sum;
    const std::array<timespec, 2> times{timespec{time, 0}, timespec{time, 0}};
    if (::futimens(target->get(), times.data()) != 0)
        return systemFailure(to, "cannot be given a time");
    if (::fsync(target->get()) != 0) return systemFailure(to, "cannot be flushed to disk");
    return sum;
}

Result<std::string> md5Of(const std::string& path) {
    const auto source = openForReading(path);
    if (!source) return tl::make_unexpected(source.error());
    return pump(path, *source, {}, nullptr);
}

Result<void> writeNewFile(const std::string& path, const std::string& text) {
    const auto file = createNew(path);
    if (!file) return tl::make_unexpected(file.error());
    if (auto written = writeAll(*file, path, text.data(), text.size()); !written) return written;
    if (::fsync(file->get()) != 0) return systemFailure(path, "cannot be flushed to disk");
    return {};
}

Result<void> flushFolder(const std::string& path) {
    const FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || ::fsync(folder.get()) != 0)
        return systemFailure(path, "cannot be flushed to disk");
    return {};
}

}  // namespace depot
