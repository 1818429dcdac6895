#include "hostile_packages.h"

#include <openssl/evp.h>
#include <sys/stat.h>
#include <zip.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>

namespace faults {
namespace {

struct Member {
    std::string name;
    std::string content;
    mode_t mode = S_IFREG | 0644;
    bool encrypted = false;
};

constexpr mode_t kLink = S_IFLNK | 0777;
constexpr std::size_t kMuch = 3'000'000;

void check(bool held, const char* what) {
    if (held) return;
    std::fprintf(stderr, "misbehaving_server: %s\n", what);
    std::abort();
}

std::string archiveOf(const std::vector<Member>& members) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* const buffer = zip_source_buffer_create(nullptr, 0, 0, &error);
    check(buffer != nullptr, "no room for an archive");
    zip_source_keep(buffer);
    zip_t* const archive = zip_open_from_source(buffer, ZIP_TRUNCATE, &error);
    check(archive != nullptr, "an archive cannot be made");
    for (const Member& member : members) {
        const auto index = static_cast<zip_uint64_t>(zip_file_add(
            archive, member.name.c_str(),
            zip_source_buffer(archive, member.content.data(), member.content.size(), 0),
            ZIP_FL_ENC_UTF_8));
        zip_file_set_external_attributes(archive, index, 0, ZIP_OPSYS_UNIX,
                                         static_cast<zip_uint32_t>(member.mode) << 16);
        if (member.encrypted) zip_file_set_encryption(archive, index, ZIP_EM_TRAD_PKWARE, "secret");
    }
    check(zip_close(archive) == 0, "an archive cannot be written");
    check(zip_source_open(buffer) == 0, "an archive cannot be read");
    zip_stat_t status;
    zip_source_stat(buffer, &status);
    std::string bytes(status.size, '\0');
    zip_source_read(buffer, bytes.data(), bytes.size());
    zip_source_close(buffer);
    zip_source_free(buffer);
    return bytes;
}

/// Renames a member in the finished bytes, to what the library would not write.
std::string renamed(std::string bytes, const std::string& from, const std::string& to) {
    check(from.size() == to.size(), "names of two lengths");
    for (std::size_t at = 0; (at = bytes.find(from, at)) != std::string::npos; at += to.size()) {
        bytes.replace(at, to.size(), to);
    }
    return bytes;
}

using Maker = std::function<std::string(const Member& manifest)>;

const std::map<std::string, Maker>& makers() {
    static const std::map<std::string, Maker> all = {
        {"no_archive", [](const Member& manifest) { return manifest.content; }},
        {"cut_archive",
         [](const Member& manifest) {
             const std::string whole = archiveOf({manifest, {"b", std::string(9000, 'b')}});
             return whole.substr(0, whole.size() / 2);
         }},
        {"no_manifest",
         [](const Member&) {
             return archiveOf({{"other.xml", "<driver/>"}});
         }},
        {"asks_for_password",
         [](const Member& manifest) {
             return archiveOf({manifest, {"locked", "x", S_IFREG | 0644, true}});
         }},
        {"climbs_out",
         [](const Member& manifest) {
             return archiveOf({manifest, {"../../../../outside/planted", "x"}});
         }},
        {"starts_at_root",
         [](const Member& manifest) {
             return renamed(archiveOf({manifest, {"_tmp/planted", "x"}}), "_tmp/planted",
                            "/tmp/planted");
         }},
        {"links_out",
         [](const Member& manifest) {
             return archiveOf({manifest, {"l", "../../../../outside", kLink}, {"l/planted", "x"}});
         }},
        {"links_to_sentinel",
         [](const Member& manifest) {
             const Member link{"aa", "../../../../outside/sentinel", kLink};
             return renamed(archiveOf({manifest, link, {"ab", "x"}}), "ab", "aa");
         }},
        {"twice_a_name",
         [](const Member& manifest) {
             return renamed(archiveOf({manifest, {"twice_1", "x"}, {"twice_2", "y"}}), "twice_2",
                            "twice_1");
         }},
        {"folder_and_file",
         [](const Member& manifest) {
             return archiveOf({manifest, {"f", "x"}, {"f/g", "x"}});
         }},
        {"brings_unzip_out",
         [](const Member& manifest) {
             return archiveOf({manifest, {"unzip.out", "x"}});
         }},
        {"manifest_is_link",
         [](const Member&) {
             return archiveOf({{"driver.xml", "../../../../outside/sentinel", kLink}});
         }},
        // The longest name that a package may have.
        {std::string(246, 'n'),
         [](const Member& manifest) {
             return archiveOf({manifest, {"x", "x"}});
         }},
        {"long_member",
         [](const Member& manifest) {
             return archiveOf({manifest, {std::string(300, 'n'), "x"}});
         }},
        {"bomb",
         [](const Member& manifest) {
             // The central directory says 2 GB, 22 bytes before the name.
             std::string bytes = archiveOf({manifest, {"zeros", std::string(kMuch, '\0')}});
             return bytes.replace(bytes.rfind("zeros") - 22, 4, std::string("\xff\xff\xff\x7f"));
         }},
        {"grows", [](const Member& manifest) {
             return archiveOf({manifest, {"zeros", std::string(kMuch, '\0')}});
         }}};
    return all;
}

}  // namespace

std::string goodDriver(int version) {
    return "<driver><name>Lamp</name><version>" + std::to_string(version) + "</version><page>" +
           std::string(3000, static_cast<char>('a' + version % 26)) + "</page></driver>";
}

std::string goodPackage(int version) {
    return archiveOf({{"driver.xml", goodDriver(version)},
                      {"driver.lua", "return " + std::to_string(version)},
                      {"www/icon.png", std::string(5000, 'p')}});
}

const std::vector<std::string>& hostilePackageNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const auto& [name, maker] : makers()) list.push_back(name);
        return list;
    }();
    return names;
}

std::string hostilePackage(const std::string& stem, int version) {
    return makers().at(stem)({"driver.xml", goodDriver(version)});
}

std::string md5Of(const std::string& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_md5(), nullptr);
    std::string text;
    char two[3];
    for (unsigned i = 0; i < size; ++i) {
        std::snprintf(two, sizeof two, "%02x", digest[i]);
        text += two;
    }
    return text;
}

}  // namespace faults
