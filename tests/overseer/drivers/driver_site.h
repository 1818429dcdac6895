#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zip.h>
#include <map>
#include <vector>

#include "drivers/apply.h"
#include "drivers/file_names.h"
#include "root/initialization.h"
#include "sdk/files/temporary_folder.h"

namespace overseer {

/// A driver ledger in memory.
class MemoryLedger : public DriverLedger {
  public:
    Result<std::optional<DriverRecord>> find(const std::string& fileName) override {
        const auto found = records.find(fileName);
        if (found == records.end()) return std::nullopt;
        return found->second;
    }
    Result<> store(const DriverRecord& record) override {
        if (full) return failure("the disk is full");
        ++stores;
        records[record.fileName] = record;
        return {};
    }
    Result<std::vector<DriverRecord>> all() override {
        std::vector<DriverRecord> list;
        for (const auto& [name, record] : records) list.push_back(record);
        return list;
    }

    std::map<std::string, DriverRecord> records;
    int stores = 0;
    bool full = false;
};

/// A member to be put into a package.
struct Member {
    std::string name;
    std::string content;
    mode_t mode = S_IFREG | 0644;
    bool encrypted = false;
};

inline std::string manifestOf(int version, const std::string& more = {}) {
    return "<driver><name>Light</name><version>" + std::to_string(version) + "</version>" + more +
           "</driver>";
}

inline std::vector<Member> membersOf(int version) {
    return {{"driver.xml", manifestOf(version)},
            {"www/", "", S_IFDIR | 0755},
            {"www/icon.png", std::string(5000, 'p')},
            {"scripts/ü b.lua", "return " + std::to_string(version), S_IFREG | 0755},
            {"www/newest.png", "icon.png", S_IFLNK | 0777}};
}

/// Writes a real package.
inline boost::filesystem::path writePackage(const boost::filesystem::path& file,
                                            const std::vector<Member>& members) {
    boost::filesystem::remove(file);
    zip_t* archive = zip_open(file.c_str(), ZIP_CREATE | ZIP_EXCL, nullptr);
    EXPECT_NE(archive, nullptr) << file;
    for (const Member& member : members) {
        zip_source_t* source =
            zip_source_buffer(archive, member.content.data(), member.content.size(), 0);
        const bool folder = S_ISDIR(member.mode);
        const auto added =
            folder ? zip_dir_add(archive, member.name.c_str(), ZIP_FL_ENC_UTF_8)
                   : zip_file_add(archive, member.name.c_str(), source, ZIP_FL_ENC_UTF_8);
        EXPECT_GE(added, 0) << member.name;
        if (folder) zip_source_free(source);
        const auto index = static_cast<zip_uint64_t>(added);
        zip_file_set_external_attributes(archive, index, 0, ZIP_OPSYS_UNIX,
                                         static_cast<zip_uint32_t>(member.mode) << 16);
        if (member.encrypted) zip_file_set_encryption(archive, index, ZIP_EM_AES_128, "secret");
    }
    EXPECT_EQ(zip_close(archive), 0) << zip_strerror(archive);
    return file;
}

inline void overwrite(const boost::filesystem::path& file, const std::string& text) {
    std::ofstream(file.string(), std::ios::binary | std::ios::trunc) << text;
}

/// A controller of its own, with the one way to apply drivers on it.
class DriverSite : public testing::Test {
  protected:
    boost::filesystem::path package(const std::string& name, int version) const {
        return writePackage(driverFile(root, name), membersOf(version));
    }
    boost::filesystem::path copy(const std::string& name) const {
        return unpackedFolder(root, name);
    }
    std::string checksum(const std::string& name) const {
        return contentOf(checksumFile(root, name));
    }
    /// Version that applying it came to, or why it failed.
    std::string apply(const std::string& name, Occasion occasion) {
        const auto applied = application.apply(name, occasion);
        return applied ? std::to_string(applied->version) : applied.error().message;
    }
    int recorded(const std::string& name) { return ledger.records[name].version; }

    TemporaryFolder folder;
    ControllerRoot root = initializeRoot(folder / "site").value();
    MemoryLedger ledger;
    DriverApplication application{root, ledger};
};

}  // namespace overseer
