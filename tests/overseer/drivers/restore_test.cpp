#include "drivers/restore.h"

#include <gmock/gmock.h>

#include "overseer/drivers/driver_site.h"

namespace overseer {
namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;

class Restore : public DriverSite {
  protected:
    std::string restore(const std::string& name) {
        const auto restored = restoreDriver(name, root, ledger, application);
        return restored ? std::to_string(restored->version) : restored.error().message;
    }
    void applied(const std::string& name, int version) {
        package(name, version);
        ASSERT_EQ(apply(name, Occasion::kUpdate), std::to_string(version));
    }
};

TEST_F(Restore, goesBackToTheVersionBeforeAndForwardAgain) {
    EXPECT_THAT(restore("l.nvz"), HasSubstr("never applied"));
    applied("l.nvz", 1);
    EXPECT_THAT(restore("l.nvz"), HasSubstr("no earlier file"));
    applied("l.nvz", 2);
    applied("l.nvz", 3);
    for (const char* version : {"2", "3", "2"}) {
        EXPECT_EQ(restore("l.nvz"), version);
        EXPECT_EQ(recorded("l.nvz"), std::stoi(version));
        EXPECT_EQ(contentOf(copy("l.nvz") / "driver.xml"), manifestOf(std::stoi(version)));
        EXPECT_EQ(checksum("l.nvz"), md5Of(driverFile(root, "l.nvz")).value());
    }
}

TEST_F(Restore, putsBackTheLastAppliedFileInPlaceOfOneThatNeverWas) {
    applied("l.nvz", 1);
    applied("l.nvz", 2);
    const fs::path file = driverFile(root, "l.nvz");
    fs::remove(file);
    overwrite(file, "refused by apply");
    ASSERT_FALSE(application.apply("l.nvz", Occasion::kUpdate));
    EXPECT_EQ(restore("l.nvz"), "2");
    fs::remove(file);
    EXPECT_EQ(restore("l.nvz"), "2") << "the file is gone";
    EXPECT_EQ(restore("l.nvz"), "1");
}

TEST_F(Restore, refusesAKeptFileThatSomebodyWroteInto) {
    applied("l.nvz", 1);
    const std::string second = contentOf(writePackage(folder / "second", membersOf(2)));
    overwrite(driverFile(root, "l.nvz"), second);  // the same file under both names
    EXPECT_THAT(restore("l.nvz"), HasSubstr("somebody wrote into it"));
    EXPECT_EQ(apply("l.nvz", Occasion::kUpdate), "2");
    EXPECT_THAT(restore("l.nvz"), HasSubstr("no earlier file"));
    EXPECT_EQ(contentOf(driverFile(root, "l.nvz")), second);
}

TEST_F(Restore, knowsTheOldFileAfterACrashBetweenKeepingAndRecording) {
    applied("l.nvz", 1);
    applied("l.nvz", 2);
    package("l.nvz", 3);
    ledger.full = true;
    ASSERT_FALSE(application.apply("l.nvz", Occasion::kUpdate));
    ledger.full = false;
    EXPECT_EQ(apply("l.nvz", Occasion::kStart), "3");
    EXPECT_EQ(restore("l.nvz"), "2");
}

TEST_F(Restore, keepsCopiesWhereTheDriversLieOnAnotherFileSystem) {
    const TemporaryFolder memory("/dev/shm");
    fs::remove(root.packagedDrivers());
    fs::create_symlink(memory.path(), root.packagedDrivers());
    applied("l.nvz", 1);
    applied("l.nvz", 2);
    EXPECT_EQ(restore("l.nvz"), "1");
    EXPECT_EQ(restore("l.nvz"), "2");
}

}  // namespace
}  // namespace overseer
