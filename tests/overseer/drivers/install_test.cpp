#include "drivers/install.h"

#include <gmock/gmock.h>

#include "drivers/staged_driver.h"
#include "overseer/drivers/driver_site.h"

namespace overseer {
namespace {

namespace fs = boost::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

class Install : public DriverSite {
  protected:
    std::vector<InstalledFile> install(const std::vector<fs::path>& files) {
        return installDrivers(files, root, application, project);
    }
    Project project = Project::load(root.projectFile()).value();
};

TEST_F(Install, handlesEachFileByItself) {
    const fs::path light = writePackage(folder / "light.nvz", membersOf(4));
    const fs::path bare = folder.write("lamp.nvi", manifestOf(2));
    const fs::path agent = writePackage(
        folder / "agent.nvz",
        {{"driver.xml", manifestOf(1, "<agent>1</agent><library>a.so</library>")}, {"a.so", "x"}});
    const auto results = install({light, folder.write("bad.nvz", "no zip"), folder / "absent.nvi",
                                  folder.write("note.txt", "x"), bare, agent, light});
    ASSERT_EQ(results.size(), 7u);
    EXPECT_EQ(results[0].outcome->version, 4);
    EXPECT_THAT(results[1].outcome.error().message, HasSubstr("bad.nvz"));
    EXPECT_THAT(results[2].outcome.error().message, HasSubstr("absent.nvi"));
    EXPECT_THAT(results[3].outcome.error().message, HasSubstr("note.txt"));
    EXPECT_EQ(results[4].outcome->version, 2);
    EXPECT_TRUE(results[5].outcome->agent);
    EXPECT_TRUE(results[6].outcome);

    EXPECT_TRUE(fs::exists(light)) << "what is installed is a copy";
    EXPECT_FALSE(fs::exists(driverFile(root, "bad.nvz")));
    const auto saved = Project::load(root.projectFile());
    ASSERT_TRUE(saved);
    std::set<std::string> names;
    saved->AddDriverFileNames(names);
    EXPECT_THAT(names, ElementsAre("lamp.nvi", "light.nvz"));
    EXPECT_EQ(saved->deviceIds("light.nvz").size(), 1u) << "installed twice, one device";
    ASSERT_EQ(saved->agents().size(), 1u);
    EXPECT_EQ(saved->agents()[0].library, "a.so");
}

TEST_F(Install, leavesTheOldFileAndItsCopyWhenTheNewOneFails) {
    ASSERT_TRUE(install({writePackage(folder / "l.nvz", membersOf(4))})[0].outcome);
    const std::string old = contentOf(driverFile(root, "l.nvz"));

    EXPECT_FALSE(install({writePackage(folder / "l.nvz", {{"x", "no manifest"}})})[0].outcome);
    EXPECT_EQ(contentOf(driverFile(root, "l.nvz")), old);

    // Found out only when it is read to its end.
    std::string bytes = contentOf(writePackage(
        folder / "l.nvz", {{"driver.xml", manifestOf(5)}, {"data", std::string(9000, 'd')}}));
    bytes[bytes.find("data") + 10] ^= 0x55;
    overwrite(folder / "l.nvz", bytes);
    EXPECT_FALSE(install({folder / "l.nvz"})[0].outcome);
    EXPECT_EQ(contentOf(driverFile(root, "l.nvz")), old);
    EXPECT_EQ(contentOf(copy("l.nvz") / "driver.xml"), manifestOf(4));
    EXPECT_EQ(checksum("l.nvz"), md5Of(driverFile(root, "l.nvz")).value());
    EXPECT_EQ(recorded("l.nvz"), 4);

    // Found out only when it is recorded.
    ledger.full = true;
    EXPECT_FALSE(install({writePackage(folder / "l.nvz", membersOf(7))})[0].outcome);
    ledger.full = false;
    EXPECT_EQ(contentOf(driverFile(root, "l.nvz")), old);

    fs::remove(driverFile(root, "l.nvz"));
    fs::create_directory(driverFile(root, "l.nvz"));
    EXPECT_FALSE(install({writePackage(folder / "l.nvz", membersOf(6))})[0].outcome);
    EXPECT_TRUE(fs::is_directory(driverFile(root, "l.nvz")));
    for (fs::directory_iterator entry(root.packagedDrivers()), end; entry != end; ++entry) {
        EXPECT_NE(entry->path().filename().string().front(), '.') << "left behind: " << *entry;
    }
}

TEST_F(Install, placesAFileWithoutApplyingIt) {
    const fs::path light = writePackage(folder / "offer.tmp", membersOf(4));
    const auto placed = placeDriver(light, "light.nvz", root, project);
    ASSERT_TRUE(placed) << placed.error().message;
    EXPECT_EQ(placed->driver.version, 4);
    EXPECT_TRUE(placed->added);
    EXPECT_EQ(contentOf(driverFile(root, "light.nvz")), contentOf(light));
    EXPECT_EQ(recorded("light.nvz"), 0);
    EXPECT_FALSE(placeDriver(light, "light.nvz", root, project)->added);
    EXPECT_EQ(Project::load(root.projectFile())->deviceIds("light.nvz").size(), 1u);
}

TEST_F(Install, placesNothingOverWhatIsThereWhenAnythingIsWrong) {
    const fs::path good = writePackage(folder / "good.nvz", membersOf(5));
    ASSERT_TRUE(placeDriver(good, "l.nvz", root, project));
    fs::create_symlink(good, folder / "link.nvz");
    ASSERT_EQ(::mkfifo((folder / "pipe.nvz").c_str(), 0600), 0);
    const auto reasonAgainst = [this](const fs::path& file, const std::string& name) {
        const auto placed = placeDriver(file, name, root, project);
        return placed ? std::string("placed") : placed.error().message;
    };
    for (const fs::path& file : {folder / "link.nvz", folder / "pipe.nvz", folder / "absent.nvz",
                                 folder.write("t", "x")}) {
        EXPECT_THAT(reasonAgainst(file, "l.nvz"), HasSubstr(file.string()));
    }
    EXPECT_THAT(reasonAgainst(good, "../l.nvz"), HasSubstr("name of a driver file"));
    EXPECT_THAT(reasonAgainst(good, "l.nvz.nvz"), HasSubstr("name of a package"));
    EXPECT_EQ(contentOf(driverFile(root, "l.nvz")), contentOf(good));

    // That it failed is known to who asked; the next update of that name is not to suffer for it.
    fs::create_directory(driverFile(root, "way.nvz"));
    EXPECT_THAT(reasonAgainst(good, "way.nvz"), HasSubstr("could not be put at"));
    fs::remove(driverFile(root, "way.nvz"));
    package("way.nvz", 3);
    EXPECT_EQ(apply("way.nvz", Occasion::kUpdate), "3");
    for (fs::directory_iterator entry(root.packagedDrivers()), end; entry != end; ++entry) {
        EXPECT_NE(entry->path().filename().string().front(), '.') << "left behind: " << *entry;
    }
}

TEST_F(Install, takesAFileThatAlreadyLiesInItsPlace) {
    package("l.nvz", 4);
    EXPECT_TRUE(install({driverFile(root, "l.nvz")})[0].outcome);
    EXPECT_EQ(recorded("l.nvz"), 4);
}

}  // namespace
}  // namespace overseer
