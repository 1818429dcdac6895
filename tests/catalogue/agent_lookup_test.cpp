#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"

namespace {

using support::AgentSession;
using support::CommandMessage;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

const CommandMessage::Parameters kWeather{
    {"name", "Weather"}, {"library", "w.so"}, {"filename", "weather.nvz"}, {"version", "latest"}};
const std::string kCount = "count overseer.agent.driverupdate cloud_update_SOLR_failed ";
const std::string kAll = "[name: Weather][library: w.so][filename: weather.nvz][version: latest]";

class AgentLookup : public testing::Test {
  protected:
    AgentLookup() { session.start(); }
    void add(CommandMessage::Parameters parameters = kWeather) {
        session.command("AUTO_ADD_AGENT", parameters);
    }

    AgentSession session;
};

TEST_F(AgentLookup, PutsTheFileNameIntoTheQueryAsItStands) {
    CommandMessage::Parameters parameters = kWeather;
    parameters["filename"] = "a b.nvz";
    add(parameters);
    EXPECT_THAT(session.askedFileLists(), ElementsAre("a%20b.nvz")) << "encoded on the wire only";
    EXPECT_THAT(session.transport->urls(),
                ElementsAre(StartsWith("https://catalogue.test/solr/drivers/select?q=*:*&fq="
                                       "filename:(IN+a%20b.nvz)+AND+autoUpdate:%22true%22&fl="
                                       "filename,version,name,model,manufacturer,md5sum&")));
}

TEST_F(AgentLookup, EveryParameterHasToBeThereButMayBeEmpty) {
    for (const char* missing : {"name", "library", "filename", "version"}) {
        CommandMessage::Parameters parameters = kWeather;
        parameters.erase(missing);
        session.journal.take();
        add(parameters);
        EXPECT_THAT(
            session.journal.take(),
            ElementsAre("log ERROR agent_driverupdate: command failed: AUTO_ADD_AGENT: one, "
                        "or more, parameters are missing"))
            << missing;
    }
    add({{"name", ""}, {"library", ""}, {"filename", ""}, {"version", ""}});
    EXPECT_THAT(session.askedFileLists(), ElementsAre(""));
}

TEST_F(AgentLookup, AFileThatIsLookedUpIsNotAskedForAgain) {
    add();
    add();
    EXPECT_THAT(session.transport->urls(), SizeIs(1));
    session.answer(0, 200, support::answerOf({}));
    add();
    EXPECT_THAT(session.transport->urls(), SizeIs(2));
}

TEST_F(AgentLookup, AnUnknownAgentIsReportedUnderItsName) {
    add();
    session.journal.take();
    session.answer(0, 200, support::answerOf({}));
    EXPECT_THAT(session.journal.take(),
                ElementsAre("count overseer.agent.driverupdate auto_add_agent_failed Weather",
                            "log ERROR agent_driverupdate: Auto-Add Agent Failed: Weather: no such "
                            "agent found",
                            "notify <auto_add_agent_failed><reason>No such agent found</reason>"
                            "</auto_add_agent_failed>"));
}

TEST_F(AgentLookup, AFailedAnswerKeepsTheNameThatUpdatesUse) {
    add();
    session.journal.take();
    session.answer(0, 404, "");
    EXPECT_THAT(
        session.journal.take(),
        ElementsAre(kCount + "agents",
                    "log ERROR agent_driverupdate: Auto-Add Agent Failed: weather.nvz: Error from "
                    "SOLR: Success",
                    "notify <driver_update_failed><reason>SOLR Error</reason>"
                    "</driver_update_failed>"));
}

TEST_F(AgentLookup, WhatCannotGoOutIsToldWithAllParameters) {
    const auto refused = make_error_code(boost::system::errc::io_error);
    session.transport->refuseCaFiles(refused, 1);
    add();
    EXPECT_THAT(session.journal.only({"count", "log ERROR", "notify"}),
                ElementsAre(kCount + "weather.nvz",
                            "log ERROR agent_driverupdate: Auto-Add Agent Failed " + kAll + ": " +
                                refused.message(),
                            "notify <auto_add_agent_failed><reason>HTTP Request Failed: " +
                                refused.message() + "</reason></auto_add_agent_failed>"));
    session.journal.take();
    nv::hosting::Environment broken = nv::hosting::environment();
    broken.solrDriversUrl = "no url";
    const nv::hosting::EnvironmentScope scope(broken);
    add();
    EXPECT_THAT(session.journal.only({"count", "log ERROR", "notify"}),
                ElementsAre(kCount + "weather.nvz",
                            StartsWith("log ERROR agent_driverupdate: Auto-Add Agent Failed " +
                                       kAll + ": Failed to create SOLR query: "),
                            "notify <auto_add_agent_failed><reason>Failed to create SOLR query"
                            "</reason></auto_add_agent_failed>"));
    EXPECT_THAT(session.transport->urls(), IsEmpty());
}

}  // namespace
