#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"

namespace {

using support::AgentSession;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

TEST(Lifecycle, ConstructionTouchesNothing) {
    AgentSession session;
    EXPECT_TRUE(session.journal.entries().empty());
    EXPECT_EQ(session.operations().GetAgent(), static_cast<IAgent*>(&session.agent()));
    EXPECT_EQ(session.operations().GetDevice(), nullptr);
    EXPECT_EQ(session.operations().GetDriverType(), DriverType::kAgent);
}

TEST(Lifecycle, LastMessageIsAVariableOfTheAgentUntilItGoes) {
    AgentSession session;
    session.operations().RegisterVariables();
    EXPECT_THAT(session.journal.take(),
                ElementsAre("add variable 1000 LAST_MESSAGE 1 '' true false The result of the last "
                            "update."));
    session.destroyAgent();
    EXPECT_THAT(session.journal.take(), ElementsAre("remove variable 1000"));
}

TEST(Lifecycle, LateInitialisationAnswersForTheForcedEvent) {
    AgentSession session;
    session.host.scheduler.refuseEntries(true);
    EXPECT_EQ(session.operations().LateInitialize(), -1);
    EXPECT_THAT(session.journal.only({"add"}),
                ElementsAre("add event Driver and Agent Auto Update Event",
                            "add event Driver and Agent Forced Auto Update Event"));
    session.host.scheduler.refuseEntries(false);
    session.host.listenerAnswer = 7;
    EXPECT_EQ(session.operations().LateInitialize(), 7);
}

TEST(Lifecycle, EightCommandsAreThereHoweverOftenTheyAreRegistered) {
    AgentSession session;
    session.operations().RegisterCommands();
    session.operations().RegisterCommands();
    IAgent& agent = *session.operations().GetAgent();
    EXPECT_THAT(agent.GetUICmdDispatcher().GetUICmdNames(),
                UnorderedElementsAre("GET_STATE", "GET_SETUP", "EVALUATE_DRIVER"));
    EXPECT_THAT(agent.GetCmdDispatcher().GetCmdNames(),
                UnorderedElementsAre("SET_STATE", "SET_EXCLUDE", "EXECUTE_AUTO_UPDATE",
                                     "UPDATE_DRIVERS", "AUTO_ADD_AGENT"));
}

TEST(Lifecycle, LogRecordsNameTheAgentsSourceAndTheMethod) {
    AgentSession session;
    session.start();
    session.command("EXECUTE_AUTO_UPDATE");
    ASSERT_FALSE(session.log.records().empty());
    const support::LogRecord& record = session.log.records().back();
    EXPECT_EQ(record.level, "DEBUG");
    EXPECT_EQ(record.file, "Drivers/norvane_agent_driverupdate/nvw/norvane_agent_driverupdate");
    EXPECT_EQ(record.function, "void norvane_agent_driverupdate::executeAutoUpdate(bool)");
    EXPECT_GT(record.line, 0);
    EXPECT_EQ(record.message, "agent_driverupdate: Executing Auto Update");
}

TEST(Lifecycle, ADisabledLevelIsSilent) {
    AgentSession session;
    session.start();
    session.log.setLevel(log4cplus::INFO_LOG_LEVEL);
    session.command("EXECUTE_AUTO_UPDATE");
    EXPECT_TRUE(session.journal.only({"log"}).empty());
}

TEST(Lifecycle, DestructionCancelsRequestsInOrderOfTheirKeys) {
    AgentSession session;
    session.start();
    session.host.driverFiles = {"b.nvz"};
    session.command("EXECUTE_AUTO_UPDATE");
    session.host.driverFiles = {"a.nvz"};
    session.command("EXECUTE_AUTO_UPDATE");
    session.journal.take();

    session.destroyAgent();
    EXPECT_THAT(session.journal.take(),
                ElementsAre("remove variable 1000", HasSubstr("cancel https://"),
                            HasSubstr("cancel https://")));
    const std::vector<support::RecordingTransport::Transfer>& all = session.transport->transfers();
    EXPECT_TRUE(all[0].cancelled);
    EXPECT_TRUE(all[1].cancelled);
}

TEST(Lifecycle, AnAnswerThatComesAfterTheAgentDoesNothing) {
    AgentSession session;
    session.start();
    session.host.driverFiles = {"a.nvz"};
    session.command("EXECUTE_AUTO_UPDATE");
    session.destroyAgent();
    session.journal.take();
    session.transport->answerLate(0, 200, support::answerOf({{"a.nvz", 5, "0", ""}}));
    session.loop.runReady();
    EXPECT_TRUE(session.journal.entries().empty());
}

TEST(Lifecycle, ADownloadThatEndsAfterTheAgentTouchesNothing) {
    AgentSession session;
    session.start();
    session.host.driverFiles = {"a.nvi"};
    support::writeFile(session.root / "plain/a.nvi", "old");
    session.command("EXECUTE_AUTO_UPDATE");
    session.answer(0, 200, support::answerOf({{"a.nvi", 5, "", ""}}));
    ASSERT_EQ(session.transport->transfers().size(), 2U);
    session.destroyAgent();
    session.transport->answerLate(1, 200, "new");
    session.loop.runReady();
    EXPECT_EQ(support::readFile(session.root / "plain/a.nvi"), "old");
    EXPECT_FALSE(session.journal.has("update a.nvi"));
}

}  // namespace
