#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent_session.h"

namespace {

using support::AgentSession;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kCount = "count overseer.agent.driverupdate ";
const std::vector<std::string> kRestart{
    "plain count overseer.agent.driverupdate update_restart_overseer 1 0",
    "log DEBUG agent_driverupdate: Driver updated requires a Overseer restart. RESTARTING OVERSEER",
    "restart"};

std::string file(const std::string& name, const std::string& restart) {
    return "<file><driver_name>" + name + "</driver_name><overseer_restart>" + restart +
           "</overseer_restart></file>";
}

void updateDrivers(AgentSession& session, const std::string& files, const std::string& restart) {
    session.command("UPDATE_DRIVERS", {{"driver_files", files}, {"restart_overseer", restart}});
}

TEST(UpdateDrivers, HandlesEveryFileInOrderAndReportsEach) {
    AgentSession session;
    session.start();
    session.host.refusedUpdates = {"b.nvi"};
    updateDrivers(session,
                  "<files>" + file("a.nvz", "true") + file("b.nvi", "true") + "<other/></files>",
                  "false");
    EXPECT_THAT(
        session.journal.take(),
        ElementsAre(
            "update a.nvz", "log DEBUG agent_driverupdate: Driver updated: a.nvz",
            kCount + "cmd_update_success a.nvz", kCount + "cmd_update_requires_restart a.nvz",
            "variable 1000 = Driver updated: a.nvz",
            "history Driver Updated: a.nvz | Driver Update Agent | Auto Update | Updated",
            "notify <driver_updated><driver_name>a.nvz</driver_name></driver_updated>",
            "update b.nvi", "log ERROR agent_driverupdate: Driver update failed: b.nvi",
            kCount + "cmd_update_failed b.nvi", "variable 1000 = Driver update failed: b.nvi",
            "history Driver Update Failed: b.nvi | Driver Update Agent | Auto Update | Failed",
            "update ", "log DEBUG agent_driverupdate: Driver updated: ",
            kCount + "cmd_update_success ", "variable 1000 = Driver updated: ",
            "history Driver Updated:  | Driver Update Agent | Auto Update | Updated",
            "notify <driver_updated><driver_name/></driver_updated>"));
}

TEST(UpdateDrivers, RestartsOnlyAtTheCallersWish) {
    for (const std::string files : {"", "<files/>", "no xml", "<files>text</files>"}) {
        AgentSession session;
        session.start();
        updateDrivers(session, files, "true");
        EXPECT_EQ(session.journal.entries(), kRestart) << files;
        session.journal.take();
        updateDrivers(session, files, "false");
        EXPECT_THAT(session.journal.entries(), IsEmpty()) << files;
    }
    AgentSession session;
    session.start();
    session.host.refusedUpdates = {"b.nvi"};
    updateDrivers(session, "<files>" + file("b.nvi", "false") + "</files>", "true");
    EXPECT_EQ(session.journal.only({"plain", "restart"}),
              (std::vector<std::string>{kRestart[0], kRestart[2]}));
}

TEST(UpdateDrivers, WithoutAParameterDoesNothing) {
    AgentSession session;
    session.start();
    EXPECT_THROW(
        session.command("UPDATE_DRIVERS", {{"driver_files", "<f>" + file("a", "1") + "</f>"}}),
        ExceptionParameterMissing);
    EXPECT_THROW(session.command("UPDATE_DRIVERS", {{"restart_overseer", "true"}}),
                 ExceptionParameterMissing);
    EXPECT_THAT(session.journal.entries(), IsEmpty());
}

}  // namespace
