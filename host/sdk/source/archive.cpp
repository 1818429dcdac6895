// Single members of zip archives, over libzip.

#include <nv/archive.h>

#include <zip.h>
#include <memory>

#include "regular_file.h"

namespace nv::archive {
namespace {

constexpr std::size_t kLargestMember = 16u << 20;

using Archive = std::unique_ptr<zip_t, decltype(&zip_discard)>;
using Member = std::unique_ptr<zip_file_t, decltype(&zip_fclose)>;

Archive openArchive(const std::string& path, std::string& error) {
    Archive none(nullptr, zip_discard);
    boost::system::error_code reason;
    Descriptor file = openRegularFile(path, reason);
    if (reason) {
        error = reason.message();
        return none;
    }
    int code = 0;
    Archive archive(zip_fdopen(file.get(), 0, &code), zip_discard);
    if (!archive) {
        zip_error_t details;
        zip_error_init_with_code(&details, code);
        error = zip_error_strerror(&details);
        zip_error_fini(&details);
        return none;
    }
    file.release();  // the archive's own from a successful opening on
    return archive;
}

/// Where the member is, when it is fit to be read; negative with the reason in `error` otherwise.
zip_int64_t locate(zip_t* archive, const std::string& member, std::string& error) {
    const zip_int64_t index = zip_name_locate(archive, member.c_str(), 0);
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

bool expand_zip(const std::string& archive, const std::string& member, std::string& out,
                std::string& error) {
    const Archive opened = openArchive(archive, error);
    if (!opened) return false;
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

}  // namespace nv::archive
