#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"

namespace {

using support::AgentSession;

std::string persisted(AgentSession& session) {
    return session.operations().GetPersistData()->ToText();
}

std::string persistData(const std::string& enabled, const std::string& byDealer,
                        const std::string& excluded) {
    return "<persist_data><auto_update_enabled>" + enabled +
           "</auto_update_enabled><auto_update_set_by_dealer>" + byDealer +
           "</auto_update_set_by_dealer><excluded_files>" + excluded +
           "</excluded_files></persist_data>";
}

nv::XmlNode::Ptr parsed(const std::string& text) {
    return nv::CreateXmlDocument(text)->GetRoot();
}

struct Restored {
    const char* name;
    std::string stored;
    std::string restored;
};

class Restoring : public testing::TestWithParam<Restored> {};

TEST_P(Restoring, KeepsOnlyWhatCounts) {
    AgentSession session;
    session.start();
    session.command("SET_EXCLUDE", {{"exclude", "held.nvz"}});
    session.start(parsed(GetParam().stored));
    EXPECT_EQ(persisted(session), GetParam().restored);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, Restoring,
    testing::Values(
        Restored{"ByDealerOff", persistData("false", "true", "a.nvz"),
                 persistData("false", "true", "a.nvz")},
        Restored{"OffButNotByDealer", persistData("false", "false", "a.nvz,b.nvi"),
                 persistData("true", "false", "a.nvz,b.nvi")},
        Restored{"ByDealerWithoutChoice",
                 "<persist_data><auto_update_set_by_dealer>true</auto_update_set_by_dealer>"
                 "</persist_data>",
                 "<persist_data><auto_update_enabled>true</auto_update_enabled>"
                 "<auto_update_set_by_dealer>true</auto_update_set_by_dealer><excluded_files/>"
                 "</persist_data>"},
        Restored{"WithoutExclusionsEmptiesTheList",
                 "<persist_data><auto_update_enabled>false</auto_update_enabled></persist_data>",
                 "<persist_data><auto_update_enabled>true</auto_update_enabled>"
                 "<auto_update_set_by_dealer>false</auto_update_set_by_dealer><excluded_files/>"
                 "</persist_data>"},
        Restored{"AnotherRoot",
                 "<other><auto_update_enabled>false</auto_update_enabled>"
                 "<auto_update_set_by_dealer>true</auto_update_set_by_dealer>"
                 "<excluded_files>x</excluded_files></other>",
                 persistData("true", "false", "held.nvz")},
        Restored{"Nothing", "", persistData("true", "false", "held.nvz")}),
    [](const auto& row) { return row.param.name; });

TEST(Settings, ADealersChoiceSurvivesARestartAndABareResetOfIt) {
    AgentSession first;
    first.start();
    first.command("SET_STATE", {{"auto_update_enabled", "true"}});
    EXPECT_EQ(persisted(first),
              "<persist_data><auto_update_enabled>true</auto_update_enabled>"
              "<auto_update_set_by_dealer>true</auto_update_set_by_dealer>"
              "<excluded_files/></persist_data>");
    first.command("SET_STATE", {{"auto_update_enabled", "false"}});
    first.command("SET_EXCLUDE", {{"exclude", " a.nvz ,,<b>&.nvi"}});
    const std::string stored = persisted(first);

    AgentSession second;
    second.start(parsed(stored));
    EXPECT_EQ(persisted(second), stored);
    second.operations().ResetSettings();
    EXPECT_EQ(persisted(second), persistData("true", "true", " a.nvz ,,&lt;b&gt;&amp;.nvi"));
}

TEST(Settings, ACommandWithoutItsParameterFailsAndChangesNothing) {
    AgentSession session;
    session.start();
    session.command("SET_EXCLUDE", {{"exclude", "a.nvz"}});
    EXPECT_THROW(session.command("SET_STATE"), ExceptionParameterMissing);
    EXPECT_THROW(session.command("SET_EXCLUDE"), ExceptionParameterMissing);
    EXPECT_EQ(persisted(session), persistData("true", "false", "a.nvz"));
}

TEST(Settings, TheStateBringsBackADeletedEventBeforeItAnswers) {
    AgentSession session;
    session.start();
    session.host.scheduler.remove(1);
    session.command("SET_STATE", {{"auto_update_enabled", "no"}});
    EXPECT_TRUE(session.journal.take().empty());

    EXPECT_EQ(session.ask("GET_STATE")->ToText(),
              "<state><auto_update_enabled>false</auto_update_enabled>"
              "<auto_update_set_by_dealer>true</auto_update_set_by_dealer></state>");
    EXPECT_TRUE(session.journal.has("add event Driver and Agent Auto Update Event"));
    EXPECT_TRUE(session.journal.has("listen 77 3"));
}

TEST(Settings, AnExclusionIsExact) {
    AgentSession session;
    session.start();
    session.command("SET_EXCLUDE", {{"exclude", "lamp.nvz,,my door.nvi, shade.nvz"}});
    const auto excluded = [&](const char* name) { return session.agent().isExcluded(name); };
    for (const char* name : {"lamp.nvz", "my door.nvi", " shade.nvz"}) {
        EXPECT_TRUE(excluded(name)) << name;
    }
    for (const char* name : {"Lamp.nvz", "lamp", "amp.nvz", "door.nvi", "shade.nvz", "",
                             "lamp.nvz,,my door.nvi", ","}) {
        EXPECT_FALSE(excluded(name)) << name;
    }
    session.command("SET_EXCLUDE", {{"exclude", ""}});
    EXPECT_FALSE(excluded("lamp.nvz"));
    EXPECT_FALSE(excluded(""));
}

}  // namespace
