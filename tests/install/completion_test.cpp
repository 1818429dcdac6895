#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"
#include "package_builder.h"

namespace {

using support::AgentSession;
using support::PackageBuilder;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kCount = "count overseer.agent.driverupdate ";
const std::string kHistoryTail = " | Driver Update Agent | Auto Update | ";

/// A controller on which one file was found to be due; its download is transfer 1.
class Completion : public testing::Test {
  protected:
    void offer(const std::string& file, const std::string& md5sum) {
        name = file;
        session.start();
        session.command("EXECUTE_AUTO_UPDATE");
        session.answer(0, 200, support::answerOf({{name, 7, md5sum, ""}}));
        ASSERT_EQ(session.downloadFolders().size(), 1U);
        tempPath = session.temporary + "/" + session.downloadFolders()[0];
        session.journal.take();
    }
    std::string finishedLine(const std::string& code = "No error") const {
        return "log DEBUG agent_driverupdate: Finished downloading file: " + name +
               ", Curl Code: " + code + ", tempPath: " + tempPath;
    }
    std::vector<std::string> successLines(const std::string& elapsed) const {
        return {finishedLine(),
                "update " + name,
                "log DEBUG agent_driverupdate: Driver updated: " + name,
                kCount + "cloud_update_success " + name,
                "log INFO " + name + " update time: " + elapsed + " milliseconds",
                "count overseer.agent.driverupdate.updatetime " + name + " " + elapsed,
                "variable 1000 = Driver updated: " + name,
                "history Driver Updated: " + name + kHistoryTail + "Updated",
                "notify <driver_updated><driver_name>" + name + "</driver_name></driver_updated>"};
    }
    std::vector<std::string> failureLines(const std::string& metric,
                                          const std::string& reason) const {
        const std::string text = reason + ": " + name;
        return {kCount + metric + " " + name,
                "log ERROR agent_driverupdate: Driver update failed" + text,
                "variable 1000 = Driver update failed" + text,
                "history Driver Update Failed" + text + kHistoryTail + "Failed"};
    }
    boost::filesystem::path packaged(const std::string& path) const {
        return session.root / ("packaged/" + path);
    }
    boost::filesystem::path plain(const std::string& path) const {
        return session.root / ("plain/" + path);
    }

    AgentSession session;
    std::string name;
    std::string tempPath;
};

TEST_F(Completion, OfAPackageReplacesItAndUnpacksItAfresh) {
    const std::string bytes = PackageBuilder().version(7).member("lib/x.lua", "code").bytes();
    PackageBuilder().version(3).writeTo(packaged("lamp one.nvz"));
    session.root.makeFolder("packaged/lamp one");
    support::writeFile(packaged("lamp one/stale.lua"), "stale");
    offer("lamp one.nvz", support::md5Of(bytes));

    session.clock->advance(std::chrono::milliseconds(1500));
    session.answer(1, 200, bytes);
    EXPECT_EQ(session.journal.entries(), successLines("1500"));
    EXPECT_EQ(support::md5Of(support::readFile(packaged("lamp one.nvz"))), support::md5Of(bytes));
    EXPECT_THAT(support::namesIn(packaged("lamp one")), ElementsAre("driver.xml", "lib"));
    EXPECT_EQ(support::readFile(packaged("lamp one/lib/x.lua")), "code");
    EXPECT_THAT(session.downloadFolders(), IsEmpty());
}

TEST_F(Completion, OfAPackageThatIsNotThereYetInstallsIt) {
    const std::string bytes = PackageBuilder().version(7).bytes();
    offer("new.nvz", support::md5Of(bytes));
    session.answer(1, 200, bytes);
    EXPECT_EQ(session.journal.entries(), successLines("0"));
    EXPECT_THAT(support::namesIn(packaged("")), ElementsAre("new", "new.nvz"));
}

TEST_F(Completion, OfABareDriverReplacesIt) {
    support::writeFile(plain("door.nvi"), "old");
    offer("door.nvi", "22af645d1859cb5ca6da0c484f1f37ea");
    session.answer(1, 200, "new");
    EXPECT_EQ(session.journal.entries(), successLines("0"));
    EXPECT_EQ(support::readFile(plain("door.nvi")), "new");
    EXPECT_THAT(support::namesIn(plain("")), ElementsAre("door.nvi"));
    EXPECT_THAT(session.downloadFolders(), IsEmpty());
}

TEST_F(Completion, OfAnExtensionInCapitalsIsThatOfABareDriver) {
    support::writeFile(plain("LAMP.NVZ"), "old");
    offer("LAMP.NVZ", support::md5Of("new"));
    session.answer(1, 200, "new");
    EXPECT_EQ(support::readFile(plain("LAMP.NVZ")), "new");
    EXPECT_THAT(support::namesIn(packaged("")), IsEmpty());
}

TEST_F(Completion, RefusedByTheHostLeavesTheNewFileInPlace) {
    support::writeFile(plain("door.nvi"), "old");
    session.host.refusedUpdates = {"door.nvi"};
    offer("door.nvi", support::md5Of("new"));
    session.answer(1, 200, "new");
    EXPECT_THAT(session.journal.entries(),
                ElementsAre(finishedLine(), "update door.nvi",
                            "log ERROR agent_driverupdate: Driver update failed: door.nvi",
                            kCount + "cloud_update_failed door.nvi",
                            "variable 1000 = Driver update failed: door.nvi",
                            "history Driver Update Failed: door.nvi" + kHistoryTail + "Failed"));
    EXPECT_EQ(support::readFile(plain("door.nvi")), "new");
}

struct Mismatch {
    const char* name;
    std::string file;
    std::string md5sum;
    int status;
    std::string code;
};

class ChecksumMismatch : public Completion, public testing::WithParamInterface<Mismatch> {};

TEST_P(ChecksumMismatch, LeavesTheInstalledFileAlone) {
    const auto installed =
        GetParam().file.ends_with(".nvz") ? packaged(GetParam().file) : plain(GetParam().file);
    support::writeFile(installed, "old");
    offer(GetParam().file, GetParam().md5sum);
    session.answer(1, GetParam().status, "new");
    std::vector<std::string> expected =
        failureLines("cloud_update_md5_check_failed", " (md5 mismatch)");
    expected.insert(expected.begin(), finishedLine(GetParam().code));
    EXPECT_EQ(session.journal.entries(), expected);
    EXPECT_EQ(support::readFile(installed), "old");
    EXPECT_THAT(session.downloadFolders(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Completion, ChecksumMismatch,
    testing::Values(
        Mismatch{"OtherContent", "a.nvz", "0cc175b9c0f1b6a831c399e269772661", 200, "No error"},
        Mismatch{"OtherContentBare", "a.nvi", "0cc175b9c0f1b6a831c399e269772661", 200, "No error"},
        Mismatch{"CapitalsCount", "a.nvi", "22AF645D1859CB5CA6DA0C484F1F37EA", 200, "No error"},
        Mismatch{"NoneStated", "a.nvz", "", 200, "No error"},
        Mismatch{"NotFound", "a.nvz", "22af645d1859cb5ca6da0c484f1f37ea", 404,
                 "The requested URL returned error: 404"}),
    [](const auto& row) { return row.param.name; });

TEST_F(Completion, OfABareDriverThatIsNotInstalledFails) {
    offer("door.nvi", support::md5Of("new"));
    session.answer(1, 200, "new");
    std::vector<std::string> expected = failureLines("cloud_update_cur_driver_not_exist_failed",
                                                     " (current driver file does not exist)");
    expected.insert(expected.begin(), finishedLine());
    EXPECT_EQ(session.journal.entries(), expected);
    EXPECT_THAT(support::namesIn(plain("")), IsEmpty());
    EXPECT_THAT(session.downloadFolders(), IsEmpty());
}

TEST_F(Completion, WithoutChecksumAndDownloadStopsAtTheMissingFile) {
    support::writeFile(plain("door.nvi"), "old");
    offer("door.nvi", "");
    boost::filesystem::remove_all(tempPath);
    session.answer(1, 200, "new");
    std::vector<std::string> expected =
        failureLines("cloud_update_downloaded_driver_not_exist_failed",
                     " (downloaded driver file does not exist)");
    const std::string unreadable = "log WARN [DriverUpdateAgent] Unable to compute hash of file " +
                                   tempPath + "/door.nvi. No such file or directory";
    expected.insert(expected.begin(), {finishedLine(), unreadable});
    EXPECT_EQ(session.journal.entries(), expected);
    EXPECT_EQ(support::readFile(plain("door.nvi")), "old");
}

TEST_F(Completion, OfAPackageWithoutChecksumAndDownloadGoesOnWithWhatIsThere) {
    PackageBuilder().version(3).writeTo(packaged("a.nvz"));
    offer("a.nvz", "");
    boost::filesystem::remove_all(tempPath);
    session.answer(1, 200, "new");
    EXPECT_TRUE(session.journal.has("update a.nvz"));
    EXPECT_THAT(support::namesIn(packaged("a")), ElementsAre("driver.xml"));
}

TEST_F(Completion, OfADamagedPackageLeavesAnEmptyFolder) {
    session.root.makeFolder("packaged/a");
    support::writeFile(packaged("a/driver.xml"), "old");
    offer("a.nvz", support::md5Of("no zip"));
    session.answer(1, 200, "no zip");
    EXPECT_TRUE(session.journal.has("update a.nvz"));
    EXPECT_THAT(support::namesIn(packaged("a")), IsEmpty());
    EXPECT_EQ(support::readFile(packaged("a.nvz")), "no zip");
}

TEST_F(Completion, ShowsAHugeTimeWhereTheClockWrapsInBetween) {
    support::writeFile(plain("door.nvi"), "old");
    session.clock->setWallTime(4'294'967, 200'000'000);
    offer("door.nvi", support::md5Of("new"));
    session.clock->advance(std::chrono::milliseconds(200));
    session.answer(1, 200, "new");
    EXPECT_EQ(session.journal.entries(), successLines("18446744069414584520"));
}

TEST_F(Completion, OfTwoDownloadsInAnyOrderKeepsThemApart) {
    support::writeFile(plain("a.nvi"), "old");
    support::writeFile(plain("b.nvi"), "old");
    session.start();
    session.command("EXECUTE_AUTO_UPDATE");
    session.answer(0, 200,
                   support::answerOf({{"a.nvi", 2, support::md5Of("new a"), ""},
                                      {"b.nvi", 2, support::md5Of("new b"), ""}}));
    session.answer(2, 200, "new b");
    session.answer(1, 200, "new a");
    EXPECT_EQ(support::readFile(plain("a.nvi")), "new a");
    EXPECT_EQ(support::readFile(plain("b.nvi")), "new b");
    EXPECT_THAT(session.journal.only({"variable"}),
                ElementsAre("variable 1000 = Driver updated: b.nvi",
                            "variable 1000 = Driver updated: a.nvi"));
    EXPECT_THAT(session.downloadFolders(), IsEmpty());
}

}  // namespace
