#include "depot/demo_archive.h"

#include <zip.h>

#include <memory>

namespace depot {
namespace {

struct Discard {
    void operator()(zip_t* archive) const { zip_discard(archive); }
};

// A fixed time of all members: 2026-01-15 12:00 in the format of DOS.
constexpr zip_uint16_t kTime = 12 << 11;
constexpr zip_uint16_t kDate = ((2026 - 1980) << 9) | (1 << 5) | 15;
constexpr zip_uint32_t kRegularFileMode = 0100644U << 16;

bool addMember(zip_t* archive, const std::string& path, const std::string& bytes) {
    zip_source_t* source = zip_source_buffer(archive, bytes.data(), bytes.size(), 0);
    if (source == nullptr) return false;
    const zip_int64_t index = zip_file_add(archive, path.c_str(), source, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
        zip_source_free(source);
        return false;
    }
    const auto member = static_cast<zip_uint64_t>(index);
    return zip_file_set_dostime(archive, member, kTime, kDate, 0) == 0 &&
           zip_file_set_external_attributes(archive, member, 0, ZIP_OPSYS_UNIX, kRegularFileMode) ==
               0;
}

}  // namespace

Result<void> writeArchive(const std::string& path, const ArchiveMembers& members) {
    int code = 0;
    std::unique_ptr<zip_t, Discard> archive(
        zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &code));
    if (!archive) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        const std::string reason = zip_error_strerror(&error);
        zip_error_fini(&error);
        return failure(path + ": cannot be written: " + reason);
    }
    for (const auto& [name, bytes] : members) {
        if (!addMember(archive.get(), name, bytes))
            return failure(std::string(path)
                               .append(": cannot hold ")
                               .append(name)
                               .append(": ")
                               .append(zip_strerror(archive.get())));
    }
    if (zip_close(archive.get()) != 0)
        return failure(path + ": cannot be written: " + zip_strerror(archive.get()));
    static_cast<void>(archive.release());  // closed
    return {};
}

}  // namespace depot
