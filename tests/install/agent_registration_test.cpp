#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"
#include "package_builder.h"

namespace {

using support::AgentSession;
using support::PackageBuilder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kAdded = "add agent Weather | w.so | weather.nvz";
const std::string kDownload = "request https://catalogue.test/solr/weather.nvz";

/// Has the agent look "weather.nvz" up and answers with one document.
void lookUp(AgentSession& session, const std::string& requested, int offered,
            const std::string& more = "", const std::string& md5sum = "") {
    session.command("AUTO_ADD_AGENT", {{"name", "Weather"},
                                       {"library", "w.so"},
                                       {"filename", "weather.nvz"},
                                       {"version", requested}});
    session.journal.take();
    const std::size_t last = session.transport->transfers().size() - 1;
    session.answer(last, 200, support::answerOf({{"weather.nvz", offered, md5sum, more}}));
}

std::string minimum(const std::string& version) {
    return "<str name=\"minimumOSVersion\">" + version + "</str>";
}

struct LocalCopy {
    const char* name;
    const char* manifest;  ///< null: no package; empty: no archive at all
    const char* requested;
    int offered;
    bool serves;
    const char* errorLine;  ///< empty for none
};

class LocalCopyDecision : public testing::TestWithParam<LocalCopy> {};

TEST_P(LocalCopyDecision, SparesTheDownloadWhereThePackageIsRecentEnough) {
    const LocalCopy& row = GetParam();
    AgentSession session;
    session.start();
    const boost::filesystem::path file =
        boost::filesystem::path(session.host.packagedFolder) / "weather.nvz";
    if (row.manifest != nullptr && *row.manifest == '\0') {
        support::writeFile(file, "no archive");
    } else if (row.manifest != nullptr) {
        PackageBuilder().member("driver.xml", row.manifest).writeTo(file);
    }
    lookUp(session, row.requested, row.offered);
    const auto steps = session.journal.only({"add agent", "request"});
    EXPECT_THAT(steps, ElementsAre(row.serves ? kAdded : kDownload));
    const auto errors = session.journal.after("log ERROR agent_driverupdate: ");
    if (*row.errorLine == '\0') {
        EXPECT_THAT(errors, IsEmpty());
    } else {
        EXPECT_THAT(errors, ElementsAre(StartsWith(row.errorLine)));
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Agent, LocalCopyDecision, testing::Values(
    LocalCopy{"Missing", nullptr, "latest", 3, false, ""},
    LocalCopy{"Older", "<d><version>2</version></d>", "latest", 3, false, ""},
    LocalCopy{"Equal", "<d><version>3</version></d>", "latest", 3, true, ""},
    LocalCopy{"Newer", "<d><version>4</version></d>", "latest", 3, true, ""},
    LocalCopy{"LatestInCapitals", "<d><version>2</version></d>", "LATEST", 3, false, ""},
    LocalCopy{"NumberIsEnough", "<d><version>2</version></d>", "2", 9, true, ""},
    LocalCopy{"NumberIsNotReached", "<d><version>2</version></d>", "3", 9, false, ""},
    LocalCopy{"LeadingDigits", "<d><version>2</version></d>", "3rd", 9, false, ""},
    LocalCopy{"NoNumberIsZero", "<d><version>2</version></d>", "newest", 9, true, ""},
    LocalCopy{"EmptyIsZero", "<d><version>2</version></d>", "", 9, true, ""},
    LocalCopy{"VersionIsNoNumber", "<d><version>two</version></d>", "0", 0, false, ""},
    LocalCopy{"VersionIsZero", "<d><version>0</version></d>", "0", 0, false, ""},
    LocalCopy{"NoVersion", "<d/>", "latest", 3, false,
              "auto-adding agent: failed to determine version of local copy: weather.nvz"},
    LocalCopy{"NotParsed", "<d><version>3</version>", "latest", 3, false,
              "auto-adding agent: failed to parse driver.xml of local copy: weather.nvz: "},
    LocalCopy{"NoArchive", "", "latest", 3, false,
              "Auto-Add Agent: Failed to load local copy: weather.nvz"}),
    [](const auto& row) { return row.param.name; });
// clang-format on

struct MinimumCase {
    const char* name;
    const char* minimum;  ///< the system is 3.4.5
    bool accepted;
};

class MinimumSystem : public testing::TestWithParam<MinimumCase> {};

TEST_P(MinimumSystem, IsComparedPartByPartAndOnlyBeforeADownload) {
    AgentSession session;
    nv::hosting::Environment environment = nv::hosting::environment();
    environment.majorVersion = 3;
    environment.minorVersion = 4;
    environment.buildNumber = 5;
    const nv::hosting::EnvironmentScope scope(environment);
    session.start();
    lookUp(session, "latest", 3, minimum(GetParam().minimum));
    if (GetParam().accepted) {
        EXPECT_THAT(session.journal.only({"request", "log ERROR"}), ElementsAre(kDownload));
        return;
    }
    EXPECT_THAT(session.journal.only({"request", "count", "variable", "history", "notify"}),
                IsEmpty());
    EXPECT_THAT(session.journal.after("log ERROR "),
                ElementsAre(StartsWith("agent_driverupdate: Auto-Add Agent: the agent is not "
                                       "compatible with the current system version: weather.nvz: "
                                       "[minimum supported version: ")));
}

INSTANTIATE_TEST_SUITE_P(Agent, MinimumSystem,
                         testing::Values(MinimumCase{"None", "", true},
                                         MinimumCase{"TwoParts", "9.9", true},
                                         MinimumCase{"TwoPartsOfLetters", "a.b", true},
                                         MinimumCase{"Equal", "3.4.5", true},
                                         MinimumCase{"BuildBelow", "3.4.6", false},
                                         MinimumCase{"BuildAbove", "3.4.4", true},
                                         MinimumCase{"MinorDecidesBeforeBuild", "3.3.9", true},
                                         MinimumCase{"MinorBelow", "3.10.0", false},
                                         MinimumCase{"MajorDecidesFirst", "2.9.9", true},
                                         MinimumCase{"MajorBelow", "4.0.0", false},
                                         MinimumCase{"FourthPartIgnored", "3.4.5.9", true},
                                         MinimumCase{"LeadingDigits", "3.4.6b", false}),
                         [](const auto& row) { return row.param.name; });

TEST(AgentRegistration, TheRefusalOfAnOldSystemNamesBothVersions) {
    AgentSession session;
    session.start();
    lookUp(session, "latest", 3, minimum("10.2.1"));
    EXPECT_THAT(session.journal.after("log ERROR "),
                ElementsAre(HasSubstr("weather.nvz: [minimum supported version: 10.2.1][current "
                                      "system version: 3.4.0]")));
}

TEST(AgentRegistration, AMinimumThatIsNoNumberIsThrownAndTheFileCanBeLookedUpAgain) {
    AgentSession session;
    session.start();
    EXPECT_THROW(lookUp(session, "latest", 3, minimum("3.x.1")), std::invalid_argument);
    EXPECT_THROW(lookUp(session, "latest", 3, minimum("1..2")), std::invalid_argument);
    lookUp(session, "latest", 3, minimum("1.0.0"));
    EXPECT_THAT(session.journal.only({"request"}), ElementsAre(kDownload));
}

TEST(AgentRegistration, AnExcludedAgentIsPassedOverInSilence) {
    AgentSession session;
    session.start();
    session.command("SET_EXCLUDE", {{"exclude", "weather.nvz"}});
    lookUp(session, "latest", 3);
    EXPECT_THAT(session.journal.take(), IsEmpty());
}

TEST(AgentRegistration, AFreshPackageIsPlacedAndAddedWithoutAnUpdatesOutcome) {
    AgentSession session;
    session.start();
    const std::string package = PackageBuilder().version(3).bytes();
    lookUp(session, "latest", 3, "", support::md5Of(package));
    session.journal.take();
    session.answer(1, 200, package);
    EXPECT_THAT(
        session.journal.only(
            {"add agent", "update", "count", "variable", "history", "notify", "log INFO"}),
        ElementsAre(
            "log INFO weather.nvz add time: 0 milliseconds",
            "count overseer.agent.driverupdate.auto_add_agent_time weather.nvz 0", kAdded,
            "count overseer.agent.driverupdate auto_add_agent_success weather.nvz",
            "variable 1000 = Auto-Add Agent Added: weather.nvz",
            "history Auto-Add Agent: weather.nvz | Driver Update Agent | Auto-Add Agent | Added",
            "notify <auto_add_agent><agent_name>weather.nvz</agent_name></auto_add_agent>"));
    EXPECT_THAT(session.downloadFolders(), IsEmpty());
}

TEST(AgentRegistration, ARefusalOfTheHostIsReported) {
    AgentSession session;
    session.start();
    session.host.addAnswer = -1;
    PackageBuilder().version(3).writeTo(boost::filesystem::path(session.host.packagedFolder) /
                                        "weather.nvz");
    lookUp(session, "latest", 3);
    EXPECT_THAT(
        session.journal.only({"log ERROR", "count", "variable", "history", "notify"}),
        ElementsAre("log ERROR agent_driverupdate: Auto-Add Agent Failed: weather.nvz",
                    "count overseer.agent.driverupdate auto_add_agent_failed weather.nvz",
                    "variable 1000 = Auto-Add Agent Failed: weather.nvz",
                    "history Auto-Add Agent Failed: weather.nvz | Driver Update Agent | Auto-Add "
                    "Agent | Failed"));
}

TEST(AgentRegistration, AnAgentThatIsThereIsLeftAloneWithoutAWord) {
    AgentSession session;
    session.start();
    session.host.deviceIds["weather.nvz"] = {5};
    PackageBuilder().version(3).writeTo(boost::filesystem::path(session.host.packagedFolder) /
                                        "weather.nvz");
    lookUp(session, "latest", 3);
    EXPECT_THAT(session.journal.only({"add agent", "log ERROR", "count", "variable", "history",
                                      "notify", "request"}),
                IsEmpty());
}

}  // namespace
