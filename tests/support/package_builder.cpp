#include "package_builder.h"

#include <nv/crypto.h>
#include <zip.h>

#include <memory>
#include <stdexcept>

#include "temporary_folder.h"

namespace support {

namespace {

void addMember(zip_t& archive, const std::string& name, const std::string& content) {
    zip_source_t* source = zip_source_buffer(&archive, content.data(), content.size(), 0);
    if (source == nullptr || zip_file_add(&archive, name.c_str(), source, ZIP_FL_ENC_UTF_8) < 0) {
        zip_source_free(source);
        throw std::runtime_error("cannot add " + name);
    }
}

}  // namespace

PackageBuilder& PackageBuilder::member(const std::string& name, const std::string& content) {
    members_.emplace_back(name, content);
    return *this;
}

PackageBuilder& PackageBuilder::version(int version) {
    return member("driver.xml",
                  "<devicedata><version>" + std::to_string(version) + "</version></devicedata>");
}

void PackageBuilder::writeTo(const boost::filesystem::path& file) const {
    int error = 0;
    std::unique_ptr<zip_t, decltype(&zip_discard)> archive(
        zip_open(file.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error), &zip_discard);
    if (!archive) throw std::runtime_error("cannot make " + file.string());
    for (const auto& [name, content] : members_) addMember(*archive, name, content);
    if (zip_close(archive.get()) != 0) throw std::runtime_error("cannot write " + file.string());
    archive.release();  // NOLINT(bugprone-unused-return-value): zip_close has freed it
}

std::string PackageBuilder::bytes() const {
    const TemporaryFolder folder;
    writeTo(folder / "package");
    return readFile(folder / "package");
}

std::string md5Of(const std::string& bytes) {
    const TemporaryFolder folder;
    writeFile(folder / "content", bytes);
    boost::system::error_code error;
    std::string digest = nv::crypto::computeFileHash((folder / "content").string(), "md5", error,
                                                     nv::crypto::CryptoEncoding::kHexLower);
    if (error) throw std::runtime_error(error.message());
    return digest;
}

}  // namespace support
