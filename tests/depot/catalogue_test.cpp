#include "depot/catalogue.h"

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "depot_test_kit.h"

namespace depot {
namespace {

using testing::bareDriver;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::TemporaryFolder;

/// A catalogue that looks at its folder each time it is asked.
class CatalogueTest : public ::testing::Test {
  protected:
    std::vector<std::string> names() {
        std::vector<std::string> names;
        const auto snapshot = catalogue_.snapshot();
        for (std::size_t at = 0; at < snapshot->size(); ++at)
            names.push_back(snapshot->document(at).filename);
        return names;
    }

    int version(const std::string& filename) {
        const auto entry = catalogue_.snapshot()->find(filename);
        return entry ? entry->document.version : -1;
    }

    TemporaryFolder folder_;
    std::vector<std::string> reports_;
    Catalogue catalogue_{folder_.path(),
                         [this](const std::string& line) { reports_.push_back(line); },
                         std::chrono::milliseconds(0)};
};

TEST_F(CatalogueTest, FollowsFilesThatComeChangeAndGo) {
    EXPECT_THAT(names(), IsEmpty());
    folder_.write("b.nvi", bareDriver(1));
    folder_.write("a.nvi", bareDriver(5));
    folder_.write("readme.txt", "no package");
    EXPECT_THAT(names(), ElementsAre("a.nvi", "b.nvi"));
    // the same size within one tick of the clock
    folder_.write("b.nvi", bareDriver(2));
    EXPECT_EQ(version("b.nvi"), 2);
    folder_.write("b.nvi.json", R"({"minimumAutoUpdateVersion":9})");
    EXPECT_EQ(catalogue_.snapshot()->find("b.nvi")->document.minimumAutoUpdateVersion, 9);
    folder_.remove("b.nvi.json");
    EXPECT_FALSE(catalogue_.snapshot()->find("b.nvi")->document.minimumAutoUpdateVersion);
    folder_.remove("a.nvi");
    EXPECT_THAT(names(), ElementsAre("b.nvi"));
    EXPECT_THAT(reports_, IsEmpty());
}

TEST_F(CatalogueTest, KeepsWhatItReadWhileNothingChanges) {
    folder_.write("a.nvi", bareDriver(1));
    const auto longAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
    std::filesystem::last_write_time(folder_.path("a.nvi"), longAgo);
    const auto first = catalogue_.snapshot();
    EXPECT_EQ(catalogue_.snapshot(), first);
    std::filesystem::last_write_time(folder_.path("a.nvi"), longAgo + std::chrono::seconds(1));
    EXPECT_NE(catalogue_.snapshot(), first);
}

TEST_F(CatalogueTest, LeavesOutWhatIsBrokenAndSaysSoOnce) {
    folder_.write("good.nvi", bareDriver(1));
    folder_.write("half.nvi", bareDriver(1).substr(0, 30));
    folder_.write("half.nvz", "PK\x03\x04");
    folder_.write("rules.nvi", bareDriver(1));
    folder_.write("rules.nvi.json", R"({"minimumOsVersion":"1"})");
    folder_.write("bell\a.nvi", bareDriver(1));
    folder_.write("latin\xDC.nvi", bareDriver(1));
    folder_.write(".hidden.nvi", bareDriver(1));
    std::filesystem::create_directory(folder_.path("folder.nvz"));
    EXPECT_THAT(names(), ElementsAre("good.nvi"));
    EXPECT_THAT(names(), ElementsAre("good.nvi"));
    EXPECT_THAT(reports_,
                ElementsAre(HasSubstr("bell?.nvi: its name holds a control character"),
                            HasSubstr("half.nvi: its manifest is no XML"),
                            HasSubstr("half.nvz: not a whole zip archive"),
                            HasSubstr("its name is not UTF-8"),
                            HasSubstr("its sidecar rules.nvi.json: \"minimumOsVersion\" is not")));
    folder_.write("half.nvi", bareDriver(4));
    EXPECT_EQ(version("half.nvi"), 4);
}

TEST_F(CatalogueTest, OpensOnlyTheVeryFileThatItDescribes) {
    folder_.write("a.nvi", bareDriver(1));
    ASSERT_TRUE(catalogue_.refresh());
    folder_.write("a.nvi", bareDriver(22));
    const auto opened = catalogue_.open("a.nvi");
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->entry->document.version, 22);
    folder_.write("secret.txt", "not a package");
    for (const char* name : {"secret.txt", "../a.nvi", "./a.nvi", "", ".", "none.nvi"}) {
        const auto refused = catalogue_.open(name);
        ASSERT_FALSE(refused) << name;
        EXPECT_EQ(refused.error(), Catalogue::OpenFailure::kNotFound) << name;
    }
}

TEST_F(CatalogueTest, KeepsTheLastStateWhenTheFolderCannotBeListed) {
    folder_.write("a.nvi", bareDriver(1));
    EXPECT_THAT(names(), ElementsAre("a.nvi"));
    std::filesystem::rename(folder_.path(), folder_.path() + ".away");
    EXPECT_THAT(names(), ElementsAre("a.nvi"));
    EXPECT_THAT(names(), ElementsAre("a.nvi"));
    std::filesystem::rename(folder_.path() + ".away", folder_.path());
    EXPECT_THAT(reports_, ElementsAre(HasSubstr("cannot be listed")));
}

}  // namespace
}  // namespace depot
