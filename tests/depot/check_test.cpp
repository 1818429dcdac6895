#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <functional>
#include <string>
#include <vector>

#include "depot/catalogue.h"
#include "depot/demo_archive.h"
#include "depot/publish/archive_check.h"
#include "depot/publish/check_report.h"
#include "depot/publish/package_check.h"
#include "depot/publish/published_versions.h"
#include "depot_test_kit.h"

namespace depot {
namespace {

using testing::bareDriver;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::TemporaryFolder;

/// The findings as lines: "error name: reason".
std::string findingsOf(const std::string& path) {
    std::string lines;
    for (const Finding& each : checkPackage(path).findings)
        lines += std::string(each.severity == Finding::Severity::kError ? "error " : "warning ") +
                 each.rule + ": " + each.message + "\n";
    return lines;
}

class CheckTest : public ::testing::Test {
  protected:
    std::string archive(const std::string& name, ArchiveMembers members) {
        members.insert(members.begin(), {"driver.xml", bareDriver(1)});
        EXPECT_TRUE(writeArchive(folder_.path(name), members));
        return folder_.path(name);
    }

    /// The archive with `change` made to its second member.
    std::string changed(ArchiveMembers members,
                        const std::function<void(zip_t*, zip_uint64_t)>& change) {
        const std::string path = archive("changed.nvz", std::move(members));
        int code = 0;
        zip_t* const opened = zip_open(path.c_str(), 0, &code);
        change(opened, 1);
        EXPECT_EQ(zip_close(opened), 0);
        return path;
    }

    static void makeLink(zip_t* opened, zip_uint64_t index) {
        zip_file_set_external_attributes(opened, index, 0, ZIP_OPSYS_UNIX,
                                         static_cast<zip_uint32_t>(S_IFLNK | 0777) << 16);
    }

    TemporaryFolder folder_;
};

TEST_F(CheckTest, NamesThatControllersCanAndCannotAskFor) {
    struct Case {
        std::string name;
        std::string finding;
    };
    const std::vector<Case> cases{
        {"lamp.nvi", ""},
        {"a + b & c #1 100% größe 照明 😀.nvi", ""},
        {"a{x}[1](2)~:^'!.nvi", ""},
        {"interval_val_1.nvi", ""},
        {"-a.nvi", ""},
        {"a,b.nvi", "warning name: holds a comma"},
        {"a\"b.nvi", "error name: holds a double quote"},
        {"a\\b.nvi", "error name: holds a backslash"},
        {"a\x01"
         "b.nvi",
         "error name: holds a control character"},
        {"a\xFF.nvi", "error name: is not UTF-8"},
        {".a.nvi", "error name: begins with a dot"},
        {"a{!func}.nvi", "error name: holds {!"},
        {"_val_:1.nvi", "error name: holds {!, _val_:"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        folder_.write(each.name, bareDriver(1));
        const std::string found = findingsOf(folder_.path(each.name));
        if (each.finding.empty())
            EXPECT_EQ(found, "");
        else
            EXPECT_THAT(found, HasSubstr(each.finding));
    }
    EXPECT_THAT(findingsOf(archive("a.nvz.nvz", {})), HasSubstr("error name: ends in .nvz twice"));
    EXPECT_THAT(findingsOf(archive("a[1].nvz", {})), HasSubstr("warning name: holds *, ? or ["));
}

TEST_F(CheckTest, VersionsRulesAndSidecars) {
    struct Case {
        std::string manifest;
        std::string sidecar;
        std::string finding;
    };
    const std::string good = bareDriver(7);
    const std::vector<Case> cases{
        {good, "{}", ""},
        {good, R"({"minimumAutoUpdateVersion": 6, "minimumOSVersion": "3.2.0"})", ""},
        {good, R"({"agent": true})", ""},
        {"<d><name>x</name></d>", "{}", "error package: its manifest has no version"},
        {"<d><version>7</d>", "{}", "error package: its manifest is no XML"},
        {"<d><version>new</version></d>", "{}", "error version: the version is 0"},
        {"<d><version>4294967295</version></d>", "{}",
         "error package: its manifest's version is too large"},
        {good, R"({"minimumAutoUpdateVersion": 7})", "error minimum: minimumAutoUpdateVersion 7"},
        {good, R"({"minimumOSVersion": "3.x.0"})", "error minimum: minimumOSVersion"},
        {good, R"({"minimumOSVersion": ""})", "error minimum: minimumOSVersion"},
        {good, R"({"minimumOSVersion": "99999999999.0.0"})", "error minimum"},
        {good, R"({"minimumOSVersion": "3.2"})", "warning minimum: minimumOSVersion"},
        {good, R"({"autoupdate": true})", "error sidecar: "},
        {good, R"({"agent": true, "autoUpdate": false, "forceAutoUpdate": true})",
         "error reach: is an agent with autoUpdate false"},
        {good, R"({"autoUpdate": false})", "warning reach: autoUpdate and forceAutoUpdate"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.manifest + each.sidecar);
        folder_.write("a.nvi", each.manifest);
        folder_.write("a.nvi.json", each.sidecar);
        const std::string found = findingsOf(folder_.path("a.nvi"));
        if (each.finding.empty())
            EXPECT_EQ(found, "");
        else
            EXPECT_THAT(found, HasSubstr(each.finding));
    }
}

TEST_F(CheckTest, AnAgentWhoseNameCannotBeTypedIsWarnedOf) {
    for (const std::string name : {"my agent.nvi", "a&b.nvi", "a%41.nvi", "a#b.nvi", "a:b.nvi"}) {
        folder_.write(name, bareDriver(1));
        folder_.write(name + ".json", R"({"agent": true})");
        EXPECT_THAT(findingsOf(folder_.path(name)),
                    HasSubstr("warning reach: cannot be added to a controller by name"))
            << name;
    }
}

TEST_F(CheckTest, ArchivesThatDoNotUnpackSafely) {
    const std::vector<std::pair<ArchiveMembers, std::string>> cases{
        {{{"www/a", "1"}, {"www/b/c", "2"}}, ""},
        {{{"../a", "1"}}, "\"../a\" would lie outside"},
        {{{"/etc/a", "1"}}, "\"/etc/a\" would lie outside"},
        {{{"a/../../b", "1"}}, "would lie outside"},
        {{{"a\\b", "1"}}, "holds a backslash"},
        {{{"a", "1"}, {"a/b", "2"}}, "\"a\" is both a file and a folder"},
        {{{"zeros", std::string(5'000'000, '\0')}}, "more than 1000 times its size"},
    };
    for (const auto& [members, finding] : cases) {
        SCOPED_TRACE(members.front().first);
        const std::string found = findingsOf(archive("a.nvz", members));
        if (finding.empty())
            EXPECT_EQ(found, "");
        else
            EXPECT_THAT(found, HasSubstr("error archive: member "));
        EXPECT_THAT(found, HasSubstr(finding));
    }
}

TEST_F(CheckTest, LinksPasswordsAndDamageInArchives) {
    EXPECT_EQ(findingsOf(changed({{"b/link", "../driver.xml"}}, &CheckTest::makeLink)), "");
    for (const std::string target : {"../../x", "/etc/passwd", "../b/../../x"}) {
        EXPECT_THAT(findingsOf(changed({{"b/link", target}}, &CheckTest::makeLink)),
                    HasSubstr("is a link that leaves the folder"))
            << target;
    }
    EXPECT_THAT(findingsOf(changed({{"b", "c"}, {"b/d", "1"}}, &CheckTest::makeLink)),
                HasSubstr("would be unpacked through the link"));
    const auto encrypt = [](zip_t* opened, zip_uint64_t index) {
        zip_file_set_encryption(opened, index, ZIP_EM_AES_256, "secret");
    };
    EXPECT_THAT(findingsOf(changed({{"a", "1"}}, encrypt)), HasSubstr("is encrypted"));
    const auto device = [](zip_t* opened, zip_uint64_t index) {
        zip_file_set_external_attributes(opened, index, 0, ZIP_OPSYS_UNIX,
                                         static_cast<zip_uint32_t>(S_IFCHR | 0666) << 16);
    };
    EXPECT_THAT(findingsOf(changed({{"a", "1"}}, device)), HasSubstr("neither file, folder nor"));

    const std::string path = archive("damaged.nvz", {{"a", std::string(3000, 'x') + "needle"}});
    FILE* const file = std::fopen(path.c_str(), "r+");
    std::fseek(file, -150, SEEK_END);  // into the directory
    std::fputs("####", file);
    std::fclose(file);
    EXPECT_THAT(findingsOf(path), HasSubstr("error "));
}

TEST_F(CheckTest, ANameThatIsThereTwice) {
    // libzip writes no such archive: the second name is changed in the bytes.
    const std::string path = archive("twice.nvz", {{"same_a", "1"}, {"same_b", "2"}});
    std::string bytes;
    {
        FILE* const file = std::fopen(path.c_str(), "r");
        for (int each = std::fgetc(file); each != EOF; each = std::fgetc(file))
            bytes += static_cast<char>(each);
        std::fclose(file);
    }
    for (std::size_t at = bytes.find("same_b"); at != std::string::npos; at = bytes.find("same_b"))
        bytes[at + 5] = 'a';
    folder_.write("twice.nvz", bytes);
    EXPECT_THAT(findingsOf(path), HasSubstr("\"same_a\" is there twice"));
}

TEST_F(CheckTest, WhatIsNoPackageAtAll) {
    ::mkdir(folder_.path("folder.nvi").c_str(), 0755);
    EXPECT_THAT(findingsOf(folder_.path("folder.nvi")), HasSubstr("is not a regular file"));
    EXPECT_EQ(::symlink("/etc/passwd", folder_.path("link.nvi").c_str()), 0);
    EXPECT_THAT(findingsOf(folder_.path("link.nvi")), HasSubstr("is not a regular file"));
    EXPECT_FALSE(packagesAt(folder_.path("none")));
    EXPECT_FALSE(packagesAt(TemporaryFolder().path()));
    folder_.write("text.txt", "");
    EXPECT_FALSE(packagesAt(folder_.path("text.txt")));
}

TEST(PublishedVersionsTest, ComparesWithWhatIsPublished) {
    const PublishedVersions published{{"a.nvi", {7, "11"}}};
    const auto finding = [&](int version, const std::string& sum, const std::string& name) {
        CheckedPackage package;
        package.filename = name;
        package.document = testing::document(name, version);
        package.document->md5sum = sum;
        compareVersions(package, published);
        return package.findings.empty() ? std::string() : package.findings.front().message;
    };
    EXPECT_EQ(finding(8, "22", "a.nvi"), "");
    EXPECT_EQ(finding(7, "11", "a.nvi"), "");
    EXPECT_EQ(finding(1, "22", "b.nvi"), "");
    EXPECT_THAT(finding(7, "22", "a.nvi"), HasSubstr("already with other content"));
    EXPECT_THAT(finding(6, "22", "a.nvi"), HasSubstr("below the published version 7"));
}

}  // namespace
}  // namespace depot
