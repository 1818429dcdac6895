// Packages and drivers in place that nobody should have made: each ends its own item only.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <boost/filesystem/operations.hpp>

#include "evaluation_session.h"
#include "package_builder.h"

namespace {

namespace fs = boost::filesystem;
using support::driversAnswer;
using support::EvaluationSession;
using support::failureAnswer;
using support::PackageBuilder;
using support::successAnswer;

const std::string kGood = "<devicedata><version>1</version></devicedata>";

std::string nested(int levels) {
    std::string text = "<devicedata><version>1</version><proxies>";
    for (int level = 0; level < levels; ++level) text += "<n>";
    for (int level = 0; level < levels; ++level) text += "</n>";
    return text + "</proxies></devicedata>";
}

std::string packageOf(const std::string& manifest) {
    return PackageBuilder().member("driver.xml", manifest).bytes();
}

/// Puts `bad.nvz` and a good driver in place, has both judged, and checks that the good one is.
class HostilePackage : public testing::Test {
  protected:
    HostilePackage() {
        session.install("good.nvi", kGood);
        session.host.deviceIds["bad.nvz"] = {1};
        session.host.deviceIds["bad.nvi"] = {1};
    }

    void expectFailure(const std::string& file, const std::string& code, const std::string& message,
                       const std::string& metric) {
        EXPECT_EQ(session.evaluate({{file, file, kGood}, {"good.nvi", "good.nvi", kGood}}),
                  driversAnswer(failureAnswer(file, code, message) +
                                successAnswer("good.nvi", "Versions are equal.")));
        EXPECT_THAT(session.journal.after("log ERROR OnCmdEvaluate: "),
                    testing::ElementsAre(message + "(\"" + file + "\")."));
        EXPECT_THAT(session.journal.after("count overseer.agent.driverupdate "),
                    testing::ElementsAre(metric + " " + file));
    }
    void expectNotLoaded(const std::string& file) {
        expectFailure(file, "ERROR_LOADING_DRIVER", "Unable to load existing driver",
                      "driver_load_failed");
    }
    void expectNoVersion(const std::string& bytes) {
        support::writeFile(session.root / "packaged/bad.nvz", bytes);
        expectFailure("bad.nvz", "ERROR_FAILED_TO_GET_DRIVER_VERSION",
                      "Failed to get version of existing driver",
                      "get_existing_driver_version_failed");
    }
    void expectNotLoadedPackage(const std::string& bytes) {
        support::writeFile(session.root / "packaged/bad.nvz", bytes);
        expectNotLoaded("bad.nvz");
    }

    EvaluationSession session;
};

TEST_F(HostilePackage, ThatIsNoArchive) {
    expectNotLoadedPackage("This is no archive.");
}

TEST_F(HostilePackage, ThatIsAPipeNobodyWritesTo) {
    ASSERT_EQ(mkfifo((session.root / "packaged/bad.nvz").c_str(), 0600), 0);
    expectNotLoaded("bad.nvz");
}

TEST_F(HostilePackage, ThatIsCutShort) {
    const std::string bytes = packageOf(kGood);
    expectNotLoadedPackage(bytes.substr(0, bytes.size() / 2));
}

TEST_F(HostilePackage, WithoutAManifest) {
    expectNotLoadedPackage(PackageBuilder().member("other.xml", kGood).bytes());
}

TEST_F(HostilePackage, WithAnEmptyManifest) {
    expectNotLoadedPackage(packageOf(""));
}

TEST_F(HostilePackage, WithAManifestThatDoesNotParse) {
    expectNoVersion(packageOf("<devicedata><version>1</devicedata>"));
}

TEST_F(HostilePackage, WithAManifestOf200Megabytes) {
    std::string manifest = kGood;
    manifest.resize(200U << 20, ' ');
    expectNotLoadedPackage(packageOf(manifest));
}

TEST_F(HostilePackage, WithAFolderInThePlaceOfTheManifest) {
    expectNotLoadedPackage(PackageBuilder().member("driver.xml/inner", "text").bytes());
}

TEST_F(HostilePackage, ThatBringsTheToolsOutputFileItself) {
    // The tool finds its own output in the way; it neither asks nor overwrites it.
    expectNotLoadedPackage(PackageBuilder()
                               .member("unzip.out", std::string(1000, 'x'))
                               .member("driver.xml", kGood)
                               .bytes());
}

TEST_F(HostilePackage, WithANameThatTheToolTakesForAPattern) {
    session.host.deviceIds["b[a]d*.nvz"] = {1};
    support::writeFile(session.root / "packaged/b[a]d*.nvz", "no archive");
    expectNotLoaded("b[a]d*.nvz");
    EXPECT_THAT(support::namesIn(session.root / "packaged"),
                testing::ElementsAre("b[a]d*", "b[a]d*.nvz"));
}

TEST_F(HostilePackage, WithANameThatLeavesNoRoomForUnpacking) {
    const std::string name = std::string(247, 'n') + ".nvz";
    session.host.deviceIds[name] = {1};
    support::writeFile(session.root / "packaged" / name, packageOf(kGood));
    expectNotLoaded(name);
}

TEST_F(HostilePackage, WithADeeplyNestedManifestIsJudgedLikeAnyOther) {
    support::writeFile(session.root / "packaged/bad.nvz", packageOf(nested(100000)));
    EXPECT_EQ(session.evaluate({{"bad.nvz", "bad.nvz", nested(100000)}}),
              driversAnswer(successAnswer("bad.nvz", "Versions are equal.")));
}

TEST_F(HostilePackage, ThatIsABareDriverButAFolder) {
    fs::create_directories(session.root / "plain/bad.nvi/member");
    expectNotLoaded("bad.nvi");
}

TEST_F(HostilePackage, ThatIsABareDriverButADanglingLink) {
    fs::create_symlink("nowhere", session.root / "plain/bad.nvi");
    expectNotLoaded("bad.nvi");
}

}  // namespace
