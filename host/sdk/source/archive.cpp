// Zip archives, and single members of them, over libzip.

#include <nv/archive.h>
#include <nvhost/archive.h>
#include <nvhost/regular_file.h>

#include <zip.h>
#include <cerrno>

namespace nv {
namespace {

constexpr std::size_t kLargestMember = 16u << 20;

using Member = std::unique_ptr<zip_file_t, decltype(&zip_fclose)>;

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): static, never deleted
class ArchiveCategory final : public boost::system::error_category {
  public:
    const char* name() const noexcept override { return "archive"; }
    std::string message(int value) const override {
        zip_error_t details;
        zip_error_init_with_code(&details, value);
        std::string text = zip_error_strerror(&details);
        zip_error_fini(&details);
        return text;
    }
};

boost::system::error_code archiveError(int code, int systemError) {
    static const ArchiveCategory category;
    zip_error_t details;
    zip_error_init_with_code(&details, code);
    const bool ofSystem = zip_error_system_type(&details) == ZIP_ET_SYS && systemError != 0;
    zip_error_fini(&details);
    if (ofSystem) return {systemError, boost::system::system_category()};
    if (code == ZIP_ER_MEMORY) return make_error_code(boost::system::errc::not_enough_memory);
    return {code, category};
}

/// Where the member is, when it is fit to be read; negative with the reason in `error` otherwise.
zip_int64_t locate(zip_t* archive, const std::string& member, std::string& error) {
    zip_int64_t index = zip_name_locate(archive, member.c_str(), 0);
    // Some programs write every name so.
    if (index < 0) index = zip_name_locate(archive, ("./" + member).c_str(), 0);
    zip_stat_t status;
    if (index < 0 || zip_stat_index(archive, static_cast<zip_uint64_t>(index), 0, &status) != 0) {
        error = zip_strerror(archive);
        return -1;
    }
    if ((status.valid & ZIP_STAT_ENCRYPTION_METHOD) != 0 &&
        status.encryption_method != ZIP_EM_NONE) {
        error = "the member is encrypted";
        return -1;
    }
    return index;
}

/// Reads to the end, which is also where the library checks the checksum. The size on record is
/// not relied on: it is the archive's word.
bool readWhole(zip_file_t* member, std::string& text, std::string& error) {
    char piece[16384];
    for (;;) {
        const zip_int64_t count = zip_fread(member, piece, sizeof piece);
        if (count < 0) {
            error = zip_file_strerror(member);
            return false;
        }
        if (count == 0) return true;
        if (text.size() + static_cast<std::size_t>(count) > kLargestMember) {
            error = "the member is larger than 16 MB";
            return false;
        }
        text.append(piece, static_cast<std::size_t>(count));
    }
}

}  // namespace

namespace hosting {

void DiscardArchive::operator()(zip* archive) const {
    zip_discard(archive);
}

Archive openArchive(const std::string& path, boost::system::error_code& error) {
    Descriptor file = openRegularFile(path, error);
    if (error) return {};
    int code = 0;
    errno = 0;
    Archive archive(zip_fdopen(file.get(), 0, &code));
    if (archive) {
        file.release();  // the archive's own from a successful opening on
    } else {
        error = archiveError(code, errno);
    }
    return archive;
}

}  // namespace hosting

namespace archive {

bool expand_zip(const std::string& archive, const std::string& member, std::string& out,
                std::string& error) {
    boost::system::error_code reason;
    const hosting::Archive opened = hosting::openArchive(archive, reason);
    if (!opened) {
        error = reason.message();
        return false;
    }
    const zip_int64_t index = locate(opened.get(), member, error);
    if (index < 0) return false;
    const Member stream(zip_fopen_index(opened.get(), static_cast<zip_uint64_t>(index), 0),
                        zip_fclose);
    if (!stream) {
        error = zip_strerror(opened.get());
        return false;
    }
    std::string text;
    if (!readWhole(stream.get(), text, error)) return false;
    out = std::move(text);
    return true;
}

}  // namespace archive
}  // namespace nv
