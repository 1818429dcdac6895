#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "agent_session.h"
#include "package_builder.h"

namespace {

using support::AgentSession;
using testing::ElementsAre;
using testing::MatchesRegex;

/// Lets the agent find an update of this name; its download is transfer 1.
void offer(AgentSession& session, const std::string& name, const std::string& md5sum = "0") {
    session.start();
    session.command("EXECUTE_AUTO_UPDATE");
    session.journal.take();
    session.answer(0, 200, support::answerOf({{name, 7, md5sum, ""}}));
}

TEST(Download, GoesToAFolderOfItsOwnUnderItsPlainName) {
    AgentSession session;
    offer(session, "my driver,1.nvi");
    const std::string name = "my driver,1.nvi";
    EXPECT_THAT(session.journal.only({"log", "request"}),
                ElementsAre("log DEBUG agent_driverupdate: Updating Driver: " + name,
                            "log DEBUG agent_driverupdate: Download Driver:  " + name,
                            "log DEBUG agent_driverupdate: Start Download",
                            "request https://catalogue.test/solr/my%20driver%2C1.nvi"));
    ASSERT_THAT(session.downloadFolders(),
                ElementsAre(MatchesRegex("[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}")));
    EXPECT_THAT(support::namesIn(session.root / "tmp" / session.downloadFolders()[0]),
                ElementsAre(name));
}

TEST(Download, OfEachFileHasItsOwnFolder) {
    AgentSession session;
    session.start();
    session.command("EXECUTE_AUTO_UPDATE");
    session.answer(0, 200, support::answerOf({{"a.nvz", 7, "0", ""}, {"b.nvi", 7, "0", ""}}));
    EXPECT_EQ(session.transport->transfers().size(), 3U);
    EXPECT_EQ(session.downloadFolders().size(), 2U);
}

TEST(Download, FollowsAFewRedirectsAndHasNoTimeLimit) {
    AgentSession session;
    offer(session, "a.nvz");
    const nv::hosting::TransferRequest& request = session.transport->transfers()[1].request;
    EXPECT_TRUE(request.followRedirects);
    EXPECT_EQ(request.maximumRedirects, 5);
    EXPECT_FALSE(request.headersOnly);
    EXPECT_FALSE(request.freshConnection);
    EXPECT_FALSE(request.closeConnection);
    EXPECT_TRUE(request.http2);
    EXPECT_TRUE(request.waitForMultiplexing);
    EXPECT_EQ(request.minimumTlsVersion, 1);
    EXPECT_EQ(request.totalTimeout.count(), 0);
    EXPECT_EQ(request.proxyHost, "");
}

TEST(Download, IsTriedThreeTimesMoreFiveSecondsApart) {
    constexpr int kCouldNotConnect = 7;
    AgentSession session;
    offer(session, "a.nvi");
    for (std::size_t attempt = 1; attempt <= 3; ++attempt) {
        session.fail(attempt, kCouldNotConnect, "refused");
        session.clock->advance(std::chrono::milliseconds(4900));
        session.loop.runReady();
        EXPECT_EQ(session.transport->transfers().size(), attempt + 1);
        session.clock->advance(std::chrono::milliseconds(200));
        session.loop.runReady();
        ASSERT_EQ(session.transport->transfers().size(), attempt + 2);
    }
    session.fail(4, kCouldNotConnect, "refused");
    session.clock->advance(std::chrono::minutes(1));
    session.loop.runReady();
    EXPECT_EQ(session.transport->transfers().size(), 5U);
    EXPECT_TRUE(session.journal.has("variable 1000 = Driver update failed (md5 mismatch): a.nvi"));
}

TEST(Download, WithoutANameAsksForTheFolderAndHarmsNothing) {
    AgentSession session;
    support::writeFile(session.root / "plain/kept.nvi", "kept");
    offer(session, "", "");
    EXPECT_EQ(session.transport->urls()[1], "https://catalogue.test/solr/");
    session.answer(1, 200, "listing");
    EXPECT_EQ(support::readFile(session.root / "plain/kept.nvi"), "kept");
    EXPECT_TRUE(session.downloadFolders().empty());
}

TEST(Download, WithoutATemporaryFolderFailsAtItsEnd) {
    AgentSession session;
    boost::filesystem::remove_all(session.temporary);
    support::writeFile(session.temporary, "in the way");
    offer(session, "a.nvz", support::md5Of("content"));
    ASSERT_EQ(session.transport->transfers().size(), 2U);
    session.answer(1, 200, "content");
    EXPECT_TRUE(session.journal.has("variable 1000 = Driver update failed (md5 mismatch): a.nvz"));
}

}  // namespace
