#include "depot/package_reader.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "depot/demo_archive.h"
#include "depot/sidecar.h"
#include "depot_test_kit.h"

namespace depot {
namespace {

using testing::bareDriver;
using ::testing::HasSubstr;
using testing::TemporaryFolder;

TEST(PackageReaderTest, ReadsVersionsAsTheAgentDoes) {
    const std::vector<std::pair<std::string, int>> table{
        {"<any><version>12</version></any>", 12},
        {"<any><version> 12beta</version></any>", 12},
        {"<any><version>beta</version></any>", 0},
        {"<any><version>1</version><version>2</version></any>", 1},
        {"<?xml version='1.0' encoding='ISO-8859-1'?><a><version>3</version><name>\xDC</name></a>",
         3},
    };
    for (const auto& [text, version] : table) {
        Document read;
        ASSERT_TRUE(readManifest(text, read)) << text;
        EXPECT_EQ(read.version, version) << text;
        EXPECT_EQ(read.name.value_or("\u00DC"), "\u00DC");
    }
    for (const char* text : {"", "<a><version>1</version>", "<a><version/></a>", "<a/>",
                             "<a><b><version>1</version></b></a>",
                             "<a><version>1</version><name>\xFF\xFE</name></a>"}) {
        Document read;
        EXPECT_FALSE(readManifest(text, read)) << text;
    }
}

TEST(PackageReaderTest, RefusesArchivesThatAreNotWhole) {
    const TemporaryFolder folder;
    const std::string path = folder.path("a.nvz");
    const auto refusal = [&] {
        const auto read = readPackage(path, "a.nvz");
        return read ? "" : read.error().message;
    };
    ASSERT_TRUE(writeArchive(path, {{"driver.xml", bareDriver(3)}, {"x.lua", "-- x"}}));
    const auto whole = readPackage(path, "a.nvz");
    ASSERT_TRUE(whole) << whole.error().message;
    EXPECT_EQ(whole->version, 3);
    EXPECT_EQ(whole->name, "Lamp");
    ASSERT_TRUE(writeArchive(path, {{"./driver.xml", bareDriver(4)}}));
    EXPECT_EQ(readPackage(path, "a.nvz")->version, 4);
    ASSERT_TRUE(writeArchive(path, {{"driver.xml", bareDriver(3)}, {"x.lua", "-- x"}}));
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 30);
    EXPECT_THAT(refusal(), HasSubstr("not a whole zip archive"));
    ASSERT_TRUE(writeArchive(path, {{"sub/driver.xml", bareDriver(3)}}));
    EXPECT_THAT(refusal(), HasSubstr("holds no driver.xml"));
    ASSERT_TRUE(writeArchive(path, {{"driver.xml", std::string(kManifestLimit + 1, ' ')}}));
    EXPECT_THAT(refusal(), HasSubstr("larger than 16 MB"));
    folder.write("a.nvz", bareDriver(3));
    EXPECT_THAT(refusal(), HasSubstr("not a whole zip archive"));
}

TEST(PackageReaderTest, HashesTheFileAsItLies) {
    const TemporaryFolder folder;
    folder.write("a.nvi", "<a><version>1</version></a>");
    EXPECT_EQ(readPackage(folder.path("a.nvi"), "a.nvi")->md5sum,
              "4906b18ae1f69c35118247f2fb40089b");
}

TEST(SidecarTest, TakesTheKnownMembersAndRefusesAllElse) {
    Document read;
    ASSERT_TRUE(readSidecar(R"({"autoUpdate":false,"forceAutoUpdate":true,"agent":true,
        "minimumAutoUpdateVersion":4,"minimumOSVersion":"3.2.0"})",
                            read));
    EXPECT_FALSE(read.autoUpdate);
    EXPECT_TRUE(read.forceAutoUpdate && read.agent);
    EXPECT_EQ(read.minimumAutoUpdateVersion, 4);
    EXPECT_EQ(read.minimumOSVersion, "3.2.0");
    for (const char* text :
         {"", "[]", "{", "{\"autoupdate\":true}", "{\"autoUpdate\":\"true\"}",
          "{\"minimumAutoUpdateVersion\":-1}", "{\"minimumAutoUpdateVersion\":2147483648}",
          "{\"minimumOSVersion\":3}", "{\"minimumOSVersion\":\"3\\n\"}"}) {
        EXPECT_FALSE(readSidecar(text, read)) << text;
    }
    EXPECT_FALSE(readSidecar(std::string(60000, '['), read));
}

}  // namespace
}  // namespace depot
