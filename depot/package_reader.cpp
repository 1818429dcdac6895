// Reads one package from disk. Packages come from anybody: sizes are bounded before memory is
// taken, and texts that could not stand in an XML answer are refused here.
#include "depot/package_reader.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <array>
#include <cerrno>
#include <limits>
#include <memory>
#include <pugixml.hpp>
#include <system_error>
#include <vector>

#include "depot/file_descriptor.h"
#include "depot/unicode.h"

namespace depot {
namespace {

constexpr std::string_view kPackagedSuffix = ".nvz";
constexpr std::string_view kBareSuffix = ".nvi";

struct ZipClose {
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
struct ZipFileClose {
    void operator()(zip_file_t* file) const { zip_fclose(file); }
};

std::string hexadecimal(const unsigned char* bytes, unsigned count) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (unsigned at = 0; at < count; ++at) {
        text += kDigits[bytes[at] >> 4];
        text += kDigits[bytes[at] & 15];
    }
    return text;
}

Result<std::string> md5OfFile(const std::string& path) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file)
        return failure(std::string("cannot be opened: ") + std::generic_category().message(errno));
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> digest(EVP_MD_CTX_new(),
                                                                    &EVP_MD_CTX_free);
    if (!digest || EVP_DigestInit_ex(digest.get(), EVP_md5(), nullptr) != 1)
        return failure("the MD5 digest is not available in this OpenSSL");
    std::vector<char> buffer(256 * 1024);
    while (true) {
        const ssize_t count = ::read(file.get(), buffer.data(), buffer.size());
        if (count == 0) break;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0)
            return failure(std::string("cannot be read: ") +
                           std::generic_category().message(errno));
        EVP_DigestUpdate(digest.get(), buffer.data(), static_cast<std::size_t>(count));
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
    unsigned length = 0;
    if (EVP_DigestFinal_ex(digest.get(), sum.data(), &length) != 1)
        return failure("the MD5 digest failed");
    return hexadecimal(sum.data(), length);
}

Result<std::string> readWhole(zip_t* archive, const zip_stat_t& member) {
    const std::unique_ptr<zip_file_t, ZipFileClose> file(zip_fopen_index(archive, member.index, 0));
    if (!file) return failure(std::string("driver.xml cannot be opened: ") + zip_strerror(archive));
    std::string text(static_cast<std::size_t>(member.size), '\0');
    std::size_t filled = 0;
    while (filled < text.size()) {
        const zip_int64_t count = zip_fread(file.get(), &text[filled], text.size() - filled);
        if (count <= 0) return failure("driver.xml is damaged");
        filled += static_cast<std::size_t>(count);
    }
    // The checksum is compared when the end is met, so the end has to be read too.
    char beyond = 0;
    if (zip_fread(file.get(), &beyond, 1) != 0) return failure("driver.xml is damaged");
    return text;
}

Result<std::string> manifestOfArchive(const std::string& path) {
    // Not ZIP_CHECKCONS: it refuses good archives that zip wrote to a pipe.
    int code = 0;
    const std::unique_ptr<zip_t, ZipClose> archive(zip_open(path.c_str(), ZIP_RDONLY, &code));
    if (!archive) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        const std::string reason = zip_error_strerror(&error);
        zip_error_fini(&error);
        return failure("not a whole zip archive: " + reason);
    }
    zip_stat_t member;
    zip_stat_init(&member);
    // Some programs write every name with "./" in front; controllers take those packages.
    if (zip_stat(archive.get(), "driver.xml", 0, &member) != 0 &&
        zip_stat(archive.get(), "./driver.xml", 0, &member) != 0)
        return failure("holds no driver.xml");
    if ((member.valid & ZIP_STAT_SIZE) == 0 || member.size > kManifestLimit)
        return failure("its driver.xml is larger than 16 MB");
    return readWhole(archive.get(), member);
}

Result<std::string> manifestOfBareFile(const std::string& path) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file)
        return failure(std::string("cannot be opened: ") + std::generic_category().message(errno));
    return readAtMost(file, kManifestLimit);
}

Result<void> takeText(const pugi::xml_node& root, const char* element,
                      std::optional<std::string>& out) {
    const std::string text = root.child(element).text().get();
    if (text.empty()) return {};
    if (!isUtf8(text)) return failure(std::string("its ") + element + " is not valid text");
    out = text;
    return {};
}

}  // namespace

bool isPackageName(std::string_view filename) {
    return !filename.empty() && filename.front() != '.' &&
           (filename.ends_with(kPackagedSuffix) || filename.ends_with(kBareSuffix));
}

Result<void> readManifest(std::string_view text, Document& document) {
    pugi::xml_document manifest;
    const pugi::xml_parse_result parsed = manifest.load_buffer(text.data(), text.size());
    if (!parsed) return failure(std::string("its manifest is no XML: ") + parsed.description());
    const pugi::xml_node root = manifest.document_element();
    const pugi::xml_text version = root.child("version").text();
    if (version.empty()) return failure("its manifest has no version");
    const unsigned int number = version.as_uint();
    if (number > static_cast<unsigned int>(std::numeric_limits<int>::max()))
        return failure("its manifest's version is too large");
    document.version = static_cast<int>(number);
    for (const auto& [element, out] :
         {std::pair{"name", &document.name}, std::pair{"model", &document.model},
          std::pair{"manufacturer", &document.manufacturer}}) {
        if (auto taken = takeText(root, element, *out); !taken) return taken;
    }
    return {};
}

Result<Document> readPackage(const std::string& path, const std::string& filename) {
    auto manifest =
        filename.ends_with(kPackagedSuffix) ? manifestOfArchive(path) : manifestOfBareFile(path);
    if (!manifest) return tl::make_unexpected(manifest.error());
    Document document;
    document.filename = filename;
    if (auto read = readManifest(*manifest, document); !read)
        return tl::make_unexpected(read.error());
    auto sum = md5OfFile(path);
    if (!sum) return tl::make_unexpected(sum.error());
    document.md5sum = std::move(*sum);
    return document;
}

}  // namespace depot
