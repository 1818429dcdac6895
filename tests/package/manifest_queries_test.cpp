#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"

namespace {

using support::AgentSession;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Proxies = norvane_agent_driverupdate::updateProxies;
using Capabilities = norvane_agent_driverupdate::updateCapabilities;

constexpr int kUntouched = -77;

class ManifestQueries : public testing::Test {
  protected:
    AgentSession session;
    const norvane_agent_driverupdate& agent = session.agent();

    Proxies proxiesOf(const std::string& manifest) const {
        Proxies proxies;
        EXPECT_TRUE(agent.getDriverProxies("lamp.nvi", manifest, proxies));
        return proxies;
    }
    Capabilities capabilitiesOf(const std::string& manifest) const {
        Capabilities capabilities;
        EXPECT_TRUE(agent.getDriverCapabilities("lamp.nvi", manifest, capabilities));
        return capabilities;
    }
};

TEST_F(ManifestQueries, ReadTheVersion) {
    struct Row {
        const char* manifest;
        bool found;
        int version;
    };
    const Row kRows[] = {
        {"<devicedata><version>12</version></devicedata>", true, 12},
        {"<anything><version> 12 </version></anything>", true, 12},
        {"<d><version>12beta3</version></d>", true, 12},
        {"<d><version>latest</version></d>", true, 0},
        {"<d><version><![CDATA[7]]></version></d>", true, 7},
        {"<d><version>3</version><version>4</version></d>", true, 3},
        {"<d><version/></d>", false, kUntouched},
        {"<d><version>  </version></d>", false, kUntouched},
        {"<d><version><number>3</number></version></d>", false, kUntouched},
        {"<d><inner><version>3</version></inner></d>", false, kUntouched},
        {"<d><Version>3</Version></d>", false, kUntouched},
        {"<d version=\"3\"/>", false, kUntouched},
    };
    for (const Row& row : kRows) {
        int version = kUntouched;
        EXPECT_EQ(agent.getDriverVersion("lamp.nvi", row.manifest, version), row.found)
            << row.manifest;
        EXPECT_EQ(version, row.version) << row.manifest;
    }
    EXPECT_THAT(session.journal.take(), IsEmpty());
}

TEST_F(ManifestQueries, ReadManifestsInTheEncodingTheyAreWrittenIn) {
    const std::string text =
        "<d><version>12</version><capabilities><name>K\xC3\xBC"
        "che</name>"
        "</capabilities></d>";
    std::string latin = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + text;
    latin.replace(latin.find("\xC3\xBC"), 2, "\xFC");
    std::string little = "\xFF\xFE";
    std::string big = "\xFE\xFF";
    for (std::size_t at = 0; at < text.size(); ++at) {
        char byte = text[at];
        if (byte == '\xC3') byte = '\xFC', ++at;  // the same number in both
        little += {byte, '\0'};
        big += {'\0', byte};
    }
    for (const std::string& manifest : {text, "\xEF\xBB\xBF" + text, latin, little, big}) {
        int version = 0;
        EXPECT_TRUE(agent.getDriverVersion("lamp.nvi", manifest, version));
        EXPECT_EQ(version, 12);
        const Capabilities capabilities = capabilitiesOf(manifest);
        ASSERT_EQ(capabilities.size(), 1U);
        EXPECT_THAT(capabilities[0].attributes, ElementsAre(Pair("name",
                                                                 "K\xC3\xBC"
                                                                 "che")));
    }
}

TEST_F(ManifestQueries, TakeEveryChildOfProxiesAsAProxy) {
    const Proxies proxies = proxiesOf(
        "<d><proxy name=\"single\"/><proxies>"
        "<proxy name=\"light\" proxybindingid=\"5001\" primary=\"True\">light_v2</proxy>"
        "<!-- a comment is none -->"
        "<other primary=\"False\" Primary=\"kept\" proxybindingid=\"5002\"/>"
        "<proxy proxydata=\"attribute\" image=\"a.png\">text<inner>deep</inner></proxy>"
        "</proxies></d>");
    ASSERT_EQ(proxies.size(), 3U);
    EXPECT_THAT(proxies[0].bindings,
                ElementsAre(Pair("proxybindingid", "5001"), Pair("primary", "True")));
    EXPECT_THAT(proxies[0].attributes,
                ElementsAre(Pair("name", "light"), Pair("proxydata", "light_v2")));
    EXPECT_THAT(proxies[1].bindings,
                ElementsAre(Pair("primary", "False"), Pair("proxybindingid", "5002")));
    EXPECT_THAT(proxies[1].attributes, ElementsAre(Pair("Primary", "kept"), Pair("proxydata", "")));
    EXPECT_THAT(proxies[2].attributes,
                ElementsAre(Pair("image", "a.png"), Pair("proxydata", "attribute")));
}

TEST_F(ManifestQueries, TakeASingleProxyOnlyWhereThereAreNoProxies) {
    EXPECT_THAT(proxiesOf("<d><proxies/><proxy name=\"single\"/></d>"), IsEmpty());
    EXPECT_THAT(proxiesOf("<d><version>1</version></d>"), IsEmpty());
    const Proxies proxies = proxiesOf("<d><proxy name=\"first\"/><proxy name=\"second\"/></d>");
    ASSERT_EQ(proxies.size(), 1U);
    EXPECT_THAT(proxies[0].attributes, ElementsAre(Pair("name", "first"), Pair("proxydata", "")));
}

TEST_F(ManifestQueries, TakeEveryChildOfCapabilitiesAsARecord) {
    const Capabilities capabilities = capabilitiesOf(
        "<d><capabilities><dimmer>true</dimmer><scene id=\"1\"><deep>x</deep></scene>"
        "<dimmer>false</dimmer></capabilities></d>");
    ASSERT_EQ(capabilities.size(), 3U);
    EXPECT_THAT(capabilities[0].attributes, ElementsAre(Pair("dimmer", "true")));
    EXPECT_THAT(capabilities[1].attributes, ElementsAre(Pair("scene", "")));
    EXPECT_THAT(capabilities[2].attributes, ElementsAre(Pair("dimmer", "false")));
    EXPECT_THAT(capabilities[0].bindings, IsEmpty());
    EXPECT_THAT(capabilitiesOf("<d/>"), IsEmpty());
}

TEST_F(ManifestQueries, AppendToWhatTheListHolds) {
    Proxies records;
    EXPECT_TRUE(agent.getDriverProxies("a", "<d><proxy/></d>", records));
    EXPECT_TRUE(agent.getDriverProxies("a", "<d><proxy/></d>", records));
    EXPECT_TRUE(
        agent.getDriverCapabilities("a", "<d><capabilities><x/></capabilities></d>", records));
    EXPECT_EQ(records.size(), 3U);
}

TEST_F(ManifestQueries, ReadTheRestartFlag) {
    const std::pair<const char*, bool> kTexts[] = {
        {"True", true}, {"true", true}, {"1", true}, {"yes", true},    {"Y", true},
        {"0", false},   {"no", false},  {"", false}, {"False", false}, {" true", false}};
    for (const auto& [text, expected] : kTexts) {
        bool restart = !expected;
        EXPECT_TRUE(agent.getDriverRestartAfterUpdate(
            "lamp.nvi",
            "<d><restart_after_update>" + std::string(text) + "</restart_after_update></d>",
            restart));
        EXPECT_EQ(restart, expected) << text;
    }
    bool restart = true;
    EXPECT_TRUE(agent.getDriverRestartAfterUpdate("lamp.nvi", "<d/>", restart));
    EXPECT_FALSE(restart);
}

TEST_F(ManifestQueries, EachTellInItsOwnWordsWhatDoesNotParse) {
    const std::pair<std::string, std::string> kTexts[] = {
        {"", "No document element found"},
        {"not XML", "No document element found"},
        {"<d><version>1</version>", "Start-end tags mismatch"},
        {"<d a=1><version>1</version></d>", "Error parsing element attribute"},
    };
    for (const auto& [text, why] : kTexts) {
        int version = kUntouched;
        bool restart = true;
        Proxies records;
        EXPECT_FALSE(agent.getDriverVersion("a {}.nvz", text, version));
        EXPECT_FALSE(agent.getDriverProxies("a {}.nvz", text, records));
        EXPECT_FALSE(agent.getDriverCapabilities("a {}.nvz", text, records));
        EXPECT_FALSE(agent.getDriverRestartAfterUpdate("a {}.nvz", text, restart));
        EXPECT_THAT(
            session.journal.take(),
            ElementsAre(
                "log ERROR getDriverVersion: Failed to parse driver xml \"a {}.nvz\": " + why,
                "log ERROR getDriverProxies: Failed to parse driver.xml: a {}.nvz: " + why,
                "log ERROR getDriverCapabilities: Failed to parse driver.xml: a {}.nvz: " + why,
                "log ERROR getDriverRestartAfterUpdate: Failed to parse driver restart tag "
                "\"a {}.nvz\": " +
                    why));
        EXPECT_EQ(version, kUntouched);
        EXPECT_THAT(records, IsEmpty());
    }
}

TEST_F(ManifestQueries, ReadAFileOfTheirOwn) {
    const std::string good = (session.root / "good.xml").string();
    const std::string bad = (session.root / "bad.xml").string();
    support::writeFile(good, "<d><proxy name=\"x\"/><capabilities><c/></capabilities></d>");
    support::writeFile(bad, "<d>");
    Proxies proxies;
    Capabilities capabilities;
    EXPECT_TRUE(agent.getDriverProxies(good, proxies));
    EXPECT_TRUE(agent.getDriverCapabilities(good, capabilities));
    EXPECT_EQ(proxies.size() + capabilities.size(), 2U);
    for (const std::string& path : {bad, session.root.path().string(), good + ".absent"}) {
        EXPECT_FALSE(agent.getDriverProxies(path, proxies)) << path;
        EXPECT_FALSE(agent.getDriverCapabilities(path, capabilities)) << path;
    }
    EXPECT_EQ(proxies.size() + capabilities.size(), 2U);
}

TEST_F(ManifestQueries, SurviveAManifestNestedWithoutMeasure) {
    std::string text = "<d><version>3</version><capabilities>";
    constexpr int kLevels = 100000;
    for (int level = 0; level < kLevels; ++level) text += "<n>";
    for (int level = 0; level < kLevels; ++level) text += "</n>";
    text += "</capabilities></d>";
    int version = 0;
    EXPECT_TRUE(agent.getDriverVersion("lamp.nvi", text, version));
    EXPECT_EQ(version, 3);
    EXPECT_EQ(capabilitiesOf(text).size(), 1U);
}

}  // namespace
