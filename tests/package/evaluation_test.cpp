#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "evaluation_session.h"
#include "package_builder.h"

namespace {

using support::driversAnswer;
using support::EvaluationSession;
using support::failureAnswer;
using support::PackageBuilder;
using support::successAnswer;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kEqual = "Versions are equal.";
const std::string kNewer = "Current version is newer.";
const std::string kCount = "count overseer.agent.driverupdate ";
const std::string kLog = "log ERROR OnCmdEvaluate: ";

std::string manifest(int version, const std::string& more = "") {
    return "<devicedata><version>" + std::to_string(version) + "</version>" + more +
           "</devicedata>";
}

std::string proxies(const std::string& children) {
    return "<proxies>" + children + "</proxies>";
}

std::string capabilities(const std::string& children) {
    return "<capabilities>" + children + "</capabilities>";
}

TEST(Evaluation, AnswersTextWithoutItemsWithoutVerdicts) {
    EvaluationSession session;
    const std::string deep = [] {
        std::string text;
        for (int level = 0; level < 100000; ++level) text += "<a>";
        for (int level = 0; level < 100000; ++level) text += "</a>";
        return text;
    }();
    for (const std::string& text :
         {std::string(), std::string("not XML"), std::string("<files/>"),
          std::string("<files>text</files>"), std::string("<files><file></files>"), deep}) {
        EXPECT_EQ(session.evaluateText(text), "<drivers/>");
    }
    EXPECT_THAT(session.journal.take(), IsEmpty());
    EXPECT_THROW(session.ask("EVALUATE_DRIVER"), ExceptionParameterMissing);
}

TEST(Evaluation, ComparesFileNamesByteForByteAfterAskingForDevices) {
    EvaluationSession session;
    session.install("a.nvi", manifest(1));
    EXPECT_EQ(session.evaluate({{"a.nvi", "A.nvi", manifest(2)}}),
              driversAnswer(
                  failureAnswer("a.nvi", "ERROR_FILE_NAMES_MUST_MATCH",
                                "New driver filename must match the existing driver filename")));
    EXPECT_THAT(
        session.journal.take(),
        ElementsAre("device ids a.nvi", kLog + "New driver filename must match the existing driver "
                                               "filename(\"a.nvi\")."));
}

TEST(Evaluation, TellsAtWhichStepAnItemFailedOnceInLogAndMetrics) {
    struct Row {
        std::string installed;  ///< empty: not in place
        std::string offered;
        const char* code;
        const char* message;
        const char* metric;
        std::vector<std::string> before;  ///< what the queries tell
    };
    const std::string parse = "Failed to parse driver xml \"lamp.nvi\": Start-end tags mismatch";
    const Row kRows[] = {
        {"",
         manifest(2),
         "ERROR_LOADING_DRIVER",
         "Unable to load existing driver",
         "driver_load_failed",
         {"log ERROR loadNVI: The .nvi file does not exist: \"@/lamp.nvi\""}},
        {manifest(1),
         "<d/>",
         "ERROR_FAILED_TO_GET_DRIVER_VERSION",
         "Failed to get version of new driver",
         "get_new_driver_version_failed",
         {}},
        {manifest(1),
         "<d>",
         "ERROR_FAILED_TO_GET_DRIVER_VERSION",
         "Failed to get version of new driver",
         "get_new_driver_version_failed",
         {"log ERROR getDriverVersion: " + parse}},
        {"<d/>",
         manifest(2),
         "ERROR_FAILED_TO_GET_DRIVER_VERSION",
         "Failed to get version of existing driver",
         "get_existing_driver_version_failed",
         {}},
        {"<d>",
         manifest(2),
         "ERROR_FAILED_TO_GET_DRIVER_VERSION",
         "Failed to get version of existing driver",
         "get_existing_driver_version_failed",
         {"log ERROR getDriverVersion: " + parse}},
    };
    for (const Row& row : kRows) {
        EvaluationSession session;
        if (!row.installed.empty()) session.install("lamp.nvi", row.installed);
        session.host.deviceIds["lamp.nvi"] = {1};
        EXPECT_EQ(session.evaluate({{"lamp.nvi", "lamp.nvi", row.offered}}),
                  driversAnswer(failureAnswer("lamp.nvi", row.code, row.message)));
        std::vector<std::string> expected = {"device ids lamp.nvi"};
        for (std::string line : row.before) {
            const std::size_t at = line.find('@');
            if (at != std::string::npos) line.replace(at, 1, session.host.plainFolder);
            expected.push_back(line);
        }
        expected.push_back(kLog + row.message + "(\"lamp.nvi\").");
        expected.push_back(kCount + row.metric + " lamp.nvi");
        EXPECT_EQ(session.journal.take(), expected);
    }
}

struct Comparison {
    const char* name;
    std::string installed;
    std::string offered;
    std::string prompt;
    std::string metric;  ///< why to restart, with its tag; empty: no restart
};

const std::string kLight = proxies("<proxy name=\"light\" proxybindingid=\"1\">a</proxy>");
const std::string kOnOff = capabilities("<on_off>true</on_off><level>10</level>");

const Comparison kComparisons[] = {
    {"Newer", manifest(10, kLight + kOnOff), manifest(11, kLight + kOnOff), "", ""},
    {"Equal", manifest(10), manifest(10), kEqual, ""},
    {"Older", manifest(10), manifest(9), kNewer, ""},
    {"VersionsCompareAsNumbers", manifest(9), manifest(10), "", ""},
    {"EqualIsStillComparedForARestart", manifest(10, kLight), manifest(10), kEqual,
     "driver_proxies_match_failed lamp.nvi"},
    {"ProxyTextChanged", manifest(1, kLight),
     manifest(2, proxies("<proxy name=\"light\">b</proxy>")), "",
     "driver_proxies_match_failed lamp.nvi"},
    {"ProxyAttributeAdded", manifest(1, kLight),
     manifest(2, proxies("<proxy name=\"light\" x=\"\">a</proxy>")), "",
     "driver_proxies_match_failed lamp.nvi"},
    {"ProxiesReordered", manifest(1, proxies("<p>a</p><p>b</p>")),
     manifest(2, proxies("<p>b</p><p>a</p>")), "", "driver_proxies_match_failed lamp.nvi"},
    {"ProxyAdded", manifest(1, proxies("<p>a</p>")), manifest(2, proxies("<p>a</p><p>b</p>")), "",
     "driver_proxies_match_failed lamp.nvi"},
    {"ProxyRemoved", manifest(1, proxies("<p>a</p><p>b</p>")), manifest(2, proxies("<p>a</p>")), "",
     "driver_proxies_match_failed lamp.nvi"},
    {"BindingsTakeNoPart", manifest(1, kLight),
     manifest(2, proxies("<other primary=\"True\" name=\"light\">a</other>")), "", ""},
    {"CapabilityChanged", manifest(1, kOnOff),
     manifest(2, capabilities("<on_off>true</on_off><level>11</level>")), "",
     "capabilities_diff_requires_restart lamp.nvi"},
    {"CapabilitiesReordered", manifest(1, kOnOff),
     manifest(2, capabilities("<level>10</level><on_off>true</on_off>")), "",
     "capabilities_diff_requires_restart lamp.nvi"},
    {"CapabilityAdded", manifest(1), manifest(2, capabilities("<level/>")), "",
     "capabilities_diff_requires_restart lamp.nvi"},
    {"ProxiesBeforeCapabilities", manifest(1, kLight + kOnOff), manifest(2), "",
     "driver_proxies_match_failed lamp.nvi"},
    {"OfferAsksForARestart", manifest(1),
     manifest(2, "<restart_after_update>True</restart_after_update>"), "",
     "driver_requires_restart lamp.nvi"},
    {"InstalledDriversWishDoesNotCount",
     manifest(1, "<restart_after_update>True</restart_after_update>"), manifest(2), "", ""},
    {"CapabilitiesBeforeTheOffersWish", manifest(1, kOnOff),
     manifest(2, "<restart_after_update>True</restart_after_update>"), "",
     "capabilities_diff_requires_restart lamp.nvi"},
};

class EvaluationOf : public testing::TestWithParam<Comparison> {};

TEST_P(EvaluationOf, PromptsAndRestartsForTheFirstReason) {
    const Comparison& row = GetParam();
    EvaluationSession session;
    session.install("lamp.nvi", row.installed);
    EXPECT_EQ(session.evaluate({{"lamp.nvi", "lamp.nvi", row.offered}}),
              driversAnswer(successAnswer("lamp.nvi", row.prompt, !row.metric.empty())));
    std::vector<std::string> expected = {"device ids lamp.nvi"};
    if (!row.metric.empty()) expected.push_back(kCount + row.metric);
    EXPECT_EQ(session.journal.take(), expected);
}

INSTANTIATE_TEST_SUITE_P(Evaluation, EvaluationOf, testing::ValuesIn(kComparisons),
                         [](const testing::TestParamInfo<Comparison>& test) {
                             return std::string(test.param.name);
                         });

TEST(Evaluation, RestartsForAListedProxyBeforeItComparesAnything) {
    struct Row {
        std::string list;   ///< content of the restart list
        const char* match;  ///< what is counted; null: the list does not speak of the offer
    };
    const std::string offered =
        manifest(2, proxies("<proxy name=\"light\" image=\"on.png\" proxybindingid=\"7\"/>"
                            "<proxy name=\"switch\">relay</proxy>"));
    const auto list = [](const std::string& entries) {
        return "<proxy_restart><proxies>" + entries + "</proxies></proxy_restart>";
    };
    const Row kRows[] = {
        {list("<proxy name=\"fan\"/><proxy name=\"light\"/>"), "light"},
        {list("<any name=\"relay\"/><any name=\"light\"/>"), "relay"},
        {list("<proxy name=\"on.png\"/>"), "on.png"},
        {list("<proxy name=\"\"/>"), ""},
        {list("<proxy name=\"Light\"/><proxy name=\"ligh\"/>"), nullptr},
        {list("<proxy name=\"7\"/>"), nullptr},
        {list("<proxy>light</proxy>"), ""},
        {list(""), nullptr},
        {"<proxy_restart><proxy name=\"light\"/></proxy_restart>", nullptr},
        {"<list><proxies><proxy name=\"light\"/>", nullptr},
        {"", nullptr},
    };
    for (const Row& row : kRows) {
        EvaluationSession session;
        session.install("lamp.nvi", manifest(1));
        support::writeFile(session.root / "config/proxy_restart.xml", row.list);
        EXPECT_EQ(session.evaluate({{"lamp.nvi", "lamp.nvi", offered}}),
                  driversAnswer(successAnswer("lamp.nvi", "", true)));
        const std::string counted = row.match == nullptr
                                        ? "driver_proxies_match_failed lamp.nvi"
                                        : std::string("proxy_requires_restart ") + row.match;
        EXPECT_THAT(session.journal.take(), ElementsAre("device ids lamp.nvi", kCount + counted))
            << row.list;
    }
}

TEST(Evaluation, AllowsWhateverIsOfferedForADriverThatNothingUses) {
    EvaluationSession session;
    session.install("lamp.nvi", manifest(5, kLight));
    session.host.deviceIds.clear();
    EXPECT_EQ(session.evaluate({{"lamp.nvi", "lamp.nvi", "no manifest"}}),
              driversAnswer(successAnswer("lamp.nvi")));
    EXPECT_THAT(session.journal.take(), ElementsAre("device ids lamp.nvi"));
    // It has to be there all the same.
    EXPECT_EQ(session.evaluate({{"fan.nvi", "fan.nvi", manifest(1)}}),
              driversAnswer(failureAnswer("fan.nvi", "ERROR_LOADING_DRIVER",
                                          "Unable to load existing driver")));
}

TEST(Evaluation, OpensPackagesByTheExactEndingOfTheName) {
    EvaluationSession session;
    PackageBuilder().version(5).writeTo(session.root / "packaged/fan.nvz");
    session.install("fan.NVZ", manifest(9));
    session.host.deviceIds["fan.nvz"] = {1, 2};
    EXPECT_EQ(session.evaluate(
                  {{"fan.nvz", "fan.nvz", manifest(5)}, {"fan.NVZ", "fan.NVZ", manifest(5)}}),
              driversAnswer(successAnswer("fan.nvz", kEqual) + successAnswer("fan.NVZ", kNewer)));
}

TEST(Evaluation, GoesOnWithTheNextItemAfterAFailure) {
    EvaluationSession session;
    session.install("b.nvi", manifest(1));
    EXPECT_EQ(session.evaluate({{"a.nvz", "a.nvz", manifest(2)}, {"b.nvi", "b.nvi", manifest(2)}}),
              driversAnswer(
                  failureAnswer("a.nvz", "ERROR_LOADING_DRIVER", "Unable to load existing driver") +
                  successAnswer("b.nvi")));
}

TEST(Evaluation, EndsAsAWholeWhenTheFileSystemRefuses) {
    EvaluationSession session;
    session.install("b.nvi", manifest(1));
    support::writeFile(session.root / "file", "");
    session.host.packagedFolder = (session.root / "file").string();
    EXPECT_THROW(
        session.evaluate({{"b.nvi", "b.nvi", manifest(2)}, {"a.nvz", "a.nvz", manifest(2)}}),
        boost::filesystem::filesystem_error);
}

}  // namespace
