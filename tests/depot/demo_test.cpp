#include "depot/demo.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "depot/catalogue.h"
#include "depot_test_kit.h"

namespace depot {
namespace {

using testing::TemporaryFolder;

class DemoTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(writeDemo(folder_.path())); }

    TemporaryFolder folder_;
};

TEST_F(DemoTest, EveryPackageUnpacksWithUnzip) {
    int archives = 0;
    for (const auto& each : std::filesystem::recursive_directory_iterator(folder_.path())) {
        if (each.path().extension() != ".nvz") continue;
        const std::string command = "unzip -tqq '" + each.path().string() + "' >/dev/null 2>&1";
        EXPECT_EQ(std::system(command.c_str()), 0) << each.path();
        ++archives;
    }
    EXPECT_GE(archives, 20);
}

/// What the rules make of a driver of that version, read from the catalogue that was written.
std::string outcomeOf(const Snapshot::Entry& entry, int installed) {
    if (!entry || !entry->document.autoUpdate) return "not offered";
    const Document& offered = entry->document;
    if (installed >= offered.version) return "current";
    if (installed < offered.minimumAutoUpdateVersion.value_or(0)) return "held back";
    return offered.minimumOSVersion.value_or("0") >= "99" ? "held back" : "updated";
}

TEST_F(DemoTest, PackagesAreWhatTheExpectationsSay) {
    const auto noReport = [](const std::string& line) { ADD_FAILURE() << line; };
    Catalogue older(folder_.path("older"), noReport);
    Catalogue newer(folder_.path("newer"), noReport);
    ASSERT_TRUE(older.refresh() && newer.refresh());
    std::ifstream file(folder_.path("expected.json"));
    const auto expected = nlohmann::json::parse(file);
    ASSERT_EQ(expected["files"].size(), older.snapshot()->size());
    std::set<std::string> outcomes;
    for (const auto& each : expected["files"]) {
        const auto entry = older.snapshot()->find(each["file"].get<std::string>());
        ASSERT_TRUE(entry) << each;
        EXPECT_EQ(entry->document.version, each["olderVersion"]) << each;
        const auto offered = newer.snapshot()->find(each["file"].get<std::string>());
        EXPECT_EQ(offered ? nlohmann::json(offered->document.version) : nlohmann::json(),
                  each["newerVersion"]);
        EXPECT_EQ(outcomeOf(offered, each["olderVersion"]), each["outcome"]) << each;
        const bool updated = each["outcome"] == "updated";
        EXPECT_EQ(each["versionAfter"], each[updated ? "newerVersion" : "olderVersion"]) << each;
        outcomes.insert(each["outcome"]);
    }
    EXPECT_EQ(outcomes, (std::set<std::string>{"current", "held back", "not offered", "updated"}));
}

TEST_F(DemoTest, WritesTheSameBytesEachTime) {
    const TemporaryFolder again;
    ASSERT_TRUE(writeDemo(again.path()));
    const std::string command =
        "diff -r '" + folder_.path() + "' '" + again.path() + "' >/dev/null 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0);
}

TEST(DemoFailureTest, SaysWhichFileCannotBeWritten) {
    const TemporaryFolder folder;
    folder.write("older", "a file where a folder must be");
    const auto written = writeDemo(folder.path());
    ASSERT_FALSE(written);
    EXPECT_THAT(written.error().message, ::testing::HasSubstr(folder.path("older")));
}

}  // namespace
}  // namespace depot
