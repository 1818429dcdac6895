#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"

namespace {

using support::AgentSession;
using testing::ElementsAre;

constexpr const char* kFields = "filename,version,name,model,manufacturer,md5sum";

TEST(Query, OnlyAForcedOneHonoursTheCore) {
    AgentSession session;
    const std::string tail =
        std::string(":\"true\"&fl=") + kFields + "&wt=xml&indent=true&rows=100000";
    const std::string base = AgentSession::kBaseUrl;
    const auto url = [&](const char* core, bool forced) {
        return session.agent().buildSolrQueryUrl("\"x%20y.nvz\"", kFields, core, forced);
    };
    const std::string unforced =
        base + "/drivers/select?q=*:*&fq=filename:(IN+\"x%20y.nvz\")+AND+autoUpdate" + tail;
    EXPECT_EQ(url("drivers", false), unforced);
    EXPECT_EQ(url("agents", false), unforced);
    EXPECT_EQ(
        url("agents", true),
        base + "/agents/select?q=*:*&fq=filename:(IN+\"x%20y.nvz\")+AND+forceAutoUpdate" + tail);
    EXPECT_EQ(
        url("drivers", true),
        base + "/drivers/select?q=*:*&fq=filename:(IN+\"x%20y.nvz\")+AND+forceAutoUpdate" + tail);
}

TEST(Query, OfNamesEscapesAndQuotesThemAndIsUnforced) {
    AgentSession session;
    EXPECT_EQ(session.agent().buildSolrQueryUrl(std::vector<std::string>{"a b.nvz", "c\"d.nvi"},
                                                kFields, "agents"),
              session.agent().buildSolrQueryUrl("\"a%20b.nvz\",\"c%22d.nvi\"", kFields, "drivers",
                                                false));
}

TEST(Query, IsVerifiedAgainstTheControllersCertificates) {
    AgentSession session;
    session.start();
    session.command("EXECUTE_AUTO_UPDATE");
    EXPECT_THAT(session.transport->caFiles(),
                ElementsAre(session.host.certificateFolder + "/ca-bundle.crt"));
    EXPECT_EQ(session.transport->transfers()[0].request.caFile,
              session.host.certificateFolder + "/ca-bundle.crt");
}

TEST(Query, TakesTheBaseUrlAnewEachTime) {
    AgentSession session;
    nv::hosting::Environment moved = nv::hosting::environment();
    moved.solrDriversUrl = "http://other.test/c";
    const nv::hosting::EnvironmentScope scope(moved);
    EXPECT_TRUE(session.agent()
                    .buildSolrQueryUrl("", "f", "drivers", false)
                    .starts_with("http://other.test/c/drivers/select?"));
}

}  // namespace
