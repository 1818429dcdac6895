#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nv/http.h>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"

namespace {

using support::AgentSession;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kCount = "count overseer.agent.driverupdate cloud_update_SOLR_failed ";

std::string failureNode(const std::string& reason) {
    return "notify <driver_update_failed><reason>" + reason + "</reason></driver_update_failed>";
}

class UpdateRequest : public testing::Test {
  protected:
    UpdateRequest() {
        session.start();
        session.host.driverFiles = {"a.nvz"};
    }
    void run() { session.command("EXECUTE_AUTO_UPDATE"); }
    /// The forced daily event, the second one that the start created.
    void runForced() { session.operations().OnSchedulerEvent(2); }

    AgentSession session;
};

TEST_F(UpdateRequest, AListInFlightIsNotAskedAboutAgain) {
    run();
    run();
    runForced();
    EXPECT_EQ(session.transport->transfers().size(), 1U);
    session.answer(0, 200, support::answerOf({}));
    run();
    EXPECT_EQ(session.transport->transfers().size(), 2U);
}

TEST_F(UpdateRequest, APassThatWentOutKeepsTheAgentsCoreFromBeingAsked) {
    runForced();
    EXPECT_THAT(session.transport->urls(),
                ElementsAre(StartsWith("https://catalogue.test/solr/drivers/select?")));
    EXPECT_THAT(session.transport->urls()[0], HasSubstr("+AND+forceAutoUpdate:%22true%22"));
}

TEST_F(UpdateRequest, TheAgentsCoreStepsInWhereTheFirstPassCouldNotGoOut) {
    const auto refused = make_error_code(boost::system::errc::no_such_file_or_directory);
    session.transport->refuseCaFiles(refused, 1);
    runForced();
    const std::string reason = refused.message();
    EXPECT_THAT(session.journal.only({"count", "log ERROR", "notify", "request"}),
                ElementsAre(kCount + "drivers",
                            "log ERROR agent_driverupdate: Error updating \"a.nvz\": " + reason,
                            failureNode("HTTP Request Failed: " + reason),
                            StartsWith("request https://catalogue.test/solr/agents/select?")));
    session.answer(0, 500, "");
    EXPECT_TRUE(session.journal.has(
        "log ERROR agent_driverupdate: Updating agents failed: Error from SOLR: Success"));
}

TEST_F(UpdateRequest, WithoutForceBothPassesAddressTheDriversCore) {
    session.transport->refuseCaFiles(make_error_code(boost::system::errc::io_error), 1);
    run();
    EXPECT_THAT(session.transport->urls(),
                ElementsAre(StartsWith("https://catalogue.test/solr/drivers/select?")));
}

TEST_F(UpdateRequest, AnUnusableUrlFailsBothPassesAndLeavesNothingInFlight) {
    nv::hosting::Environment broken = nv::hosting::environment();
    broken.solrDriversUrl = "no url";
    {
        const nv::hosting::EnvironmentScope scope(broken);
        run();
    }
    const std::string line =
        "log ERROR agent_driverupdate: Error updating \"a.nvz\": Failed to create SOLR query";
    const std::string node = failureNode("Failed to create SOLR query");
    EXPECT_THAT(session.journal.only({"count", "log ERROR", "notify"}),
                ElementsAre(kCount + "drivers", line, node, kCount + "agents", line, node));
    EXPECT_THAT(session.transport->urls(), IsEmpty());
    run();
    EXPECT_EQ(session.transport->urls().size(), 1U);
}

TEST_F(UpdateRequest, AFailedAnswerIsCountedUnderAgentsAndAskedAgainInTheNextRun) {
    run();
    session.journal.take();
    session.answer(0, 503, "busy");
    EXPECT_THAT(session.journal.take(),
                ElementsAre(kCount + "agents",
                            "log ERROR agent_driverupdate: Updating drivers failed: Error from "
                            "SOLR: Success",
                            failureNode("SOLR Error")));
    run();
    ASSERT_EQ(session.transport->urls().size(), 2U);
    session.journal.take();
    constexpr int kCouldNotConnect = 7;
    session.fail(1, kCouldNotConnect, "refused");
    EXPECT_THAT(session.journal.take(),
                ElementsAre(kCount + "agents",
                            StartsWith("log ERROR agent_driverupdate: Updating drivers failed: "
                                       "Error from SOLR: "),
                            failureNode("SOLR Error")));
    EXPECT_FALSE(session.journal.has("variable"));
}

}  // namespace
