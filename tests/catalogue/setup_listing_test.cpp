#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"

namespace {

using support::AgentSession;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

/// A name of that length; `order` decides its place among others.
std::string nameOf(char order, std::size_t length) {
    return std::string(1, order) + std::string(length - 1, 'x');
}

std::string inQuotes(const std::string& name) {
    return '"' + name + '"';
}

struct SplitCase {
    const char* name;
    std::vector<std::size_t> lengths;                ///< of the names, in their order
    std::vector<std::vector<std::size_t>> expected;  ///< of the names in each batch
};

class Splitting : public testing::TestWithParam<SplitCase> {};

TEST_P(Splitting, CutsAtTheLastCommaUpToPosition1800) {
    AgentSession session;
    session.start();
    std::vector<std::string> names;
    for (const std::size_t length : GetParam().lengths) {
        names.push_back(nameOf(static_cast<char>('a' + names.size()), length));
    }
    session.host.driverFiles = {names.begin(), names.end()};
    EXPECT_TRUE(session.ask("GET_SETUP")->IsEmpty());

    std::vector<std::string> expected;
    std::size_t next = 0;
    for (const auto& batch : GetParam().expected) {
        std::string list;
        for (std::size_t at = 0; at < batch.size(); ++at) {
            list += (at == 0 ? "" : ",") + inQuotes(names[next++]);
        }
        expected.push_back(list);
    }
    EXPECT_THAT(session.askedFileLists(), ElementsAreArray(expected));
}

// A list is as long as its names, two quotes for each and the commas between them.
INSTANTIATE_TEST_SUITE_P(
    Setup, Splitting,
    testing::Values(SplitCase{"Nothing", {}, {}}, SplitCase{"One", {5}, {{5}}},
                    SplitCase{"Exactly1800", {895, 900}, {{895, 900}}},
                    SplitCase{"OneOver", {895, 901}, {{895}, {901}}},
                    SplitCase{"CommaAt1800", {1798, 3}, {{1798}, {3}}},
                    SplitCase{"CommaAt1801", {1799, 3}, {{1799, 3}}},
                    SplitCase{"LongNameAlone", {1900}, {{1900}}},
                    SplitCase{"LongNameLast", {10, 20, 1900}, {{10, 20}, {1900}}},
                    SplitCase{"LongNameFirstKeepsTheRest", {1900, 10, 20}, {{1900, 10, 20}}},
                    SplitCase{"Three", {1000, 1000, 1000, 700}, {{1000}, {1000}, {1000, 700}}}),
    [](const auto& row) { return row.param.name; });

class Setup : public testing::Test {
  protected:
    Setup() {
        session.start();
        session.host.driverFiles = {"a.nvz", "b, c.nvi"};
        session.host.agentFiles = {"agent.nvz"};
    }
    std::vector<std::string> notified() { return session.journal.after("notify "); }

    AgentSession session;
};

TEST_F(Setup, AsksTheDriversCoreForBothKindsOfFiles) {
    session.ask("GET_SETUP");
    EXPECT_THAT(session.transport->urls(), SizeIs(2));
    EXPECT_THAT(session.transport->urls(),
                testing::Each(StartsWith("https://catalogue.test/solr/drivers/select?")));
    EXPECT_THAT(session.transport->urls()[0], HasSubstr("+AND+autoUpdate:%22true%22"));
    EXPECT_THAT(session.askedFileLists(),
                ElementsAre(R"("a.nvz","b%2C%20c.nvi")", R"("agent.nvz")"));
}

TEST_F(Setup, AnswersOutOfOrderBecomeOneListingWithTheLast) {
    session.host.driverFiles = {nameOf('a', 1700), nameOf('b', 1700)};
    session.command("SET_EXCLUDE", {{"exclude", "b.nvz,agent.nvz"}});
    session.ask("GET_SETUP");
    session.journal.take();
    session.answer(2, 200, support::answerOf({{"agent.nvz", 3, "m3", ""}}));
    session.answer(1, 200,
                   support::answerOf({{"b.nvz", 2, "", "<str name=\"model\">B &amp; 2</str>"},
                                      {"c.nvz", 4, "m4", ""}}));
    EXPECT_THAT(session.journal.take(), IsEmpty());
    session.answer(0, 200, support::answerOf({{"a.nvz", 1, "m1", ""}}));
    const auto driver = [](const char* included, const std::string& fields) {
        return std::string("<driver include=\"") + included + "\">" + fields + "</driver>";
    };
    EXPECT_THAT(session.journal.take(),
                ElementsAre("notify <setup><drivers>" +
                            driver("false",
                                   "<filename>b.nvz</filename><version>2</version><md5sum/>"
                                   "<model>B &amp; 2</model>") +
                            driver("true",
                                   "<filename>c.nvz</filename><version>4</version>"
                                   "<md5sum>m4</md5sum>") +
                            driver("true",
                                   "<filename>a.nvz</filename><version>1</version>"
                                   "<md5sum>m1</md5sum>") +
                            "</drivers><agents>" +
                            driver("false",
                                   "<filename>agent.nvz</filename><version>3</version>"
                                   "<md5sum>m3</md5sum>") +
                            "</agents></setup>"));
}

TEST_F(Setup, AnswersWithoutDocumentsLeaveTheirListEmpty) {
    session.ask("GET_SETUP");
    session.answer(0, 200, "<response/>");
    session.answer(1, 200, support::answerOf({}));
    EXPECT_THAT(notified(), ElementsAre("<setup><drivers/><agents/></setup>"));
}

TEST_F(Setup, AFieldWhoseNameIsNoElementsIsLeftOut) {
    session.host.agentFiles.clear();
    session.ask("GET_SETUP");
    session.answer(0, 200,
                   "<response><result numFound=\"1\">text<doc><str name=\"a&gt;&lt;b\">1</str>"
                   "<str>2</str><str name=\"9\">3</str><str name=\"über_1.x-y\">4</str></doc>"
                   "</result></response>");
    EXPECT_THAT(notified(),
                ElementsAre("<setup><drivers><driver include=\"true\"><über_1.x-y>4</über_1.x-y>"
                            "</driver></drivers><agents/></setup>"));
}

struct FailedBatch {
    const char* name;
    int status;  ///< 0: no answer at all
    const char* body;
    const char* log;
    const char* error;
    const char* code;  ///< of the node; the log line ends with it
};

class FailedSetup : public testing::TestWithParam<FailedBatch> {};

TEST_P(FailedSetup, TakesThePlaceOfTheWholeListing) {
    const FailedBatch& row = GetParam();
    AgentSession session;
    session.start();
    session.host.driverFiles = {"a.nvz"};
    session.host.agentFiles = {"agent.nvz"};
    session.ask("GET_SETUP");
    session.journal.take();
    constexpr int kCouldNotConnect = 7;
    if (row.status == 0) {
        session.fail(1, kCouldNotConnect, "refused");
    } else {
        session.answer(1, row.status, row.body);
    }
    EXPECT_THAT(session.journal.take(), IsEmpty());
    session.answer(0, 200, support::answerOf({{"a.nvz", 1, "", ""}}));
    EXPECT_THAT(
        session.journal.take(),
        ElementsAre("count overseer.agent.driverupdate cloud_update_SOLR_failed agents",
                    StartsWith(std::string("log ERROR agent_driverupdate: Get Setup Failed: "
                                           "agents: Error from SOLR") +
                               row.log),
                    StartsWith(std::string("notify <get_setup_failed><urldb>agents</urldb>"
                                           "<error>") +
                               row.error + "</error><errorcode>" + row.code)));
}

INSTANTIATE_TEST_SUITE_P(
    Setup, FailedSetup,
    testing::Values(FailedBatch{"Status500", 500, "", " [http status: 500]: Success",
                                "Failed to download drivers list", "Success</errorcode>"},
                    FailedBatch{"NotReached", 0, "",
                                " [http status: 0]: ", "Failed to download drivers list", ""},
                    FailedBatch{"NoXml", 200, "<response></doc>", ": Start-end tags mismatch",
                                "Could not parse the response",
                                "Start-end tags mismatch</errorcode>"}),
    [](const auto& row) { return row.param.name; });

TEST_F(Setup, ABatchThatCannotGoOutIsToldAtOnceAndEndsTheListing) {
    const auto refused = make_error_code(boost::system::errc::no_such_file_or_directory);
    session.transport->refuseCaFiles(refused, 1);
    session.ask("GET_SETUP");
    const std::string files = R"("a.nvz","b%2C%20c.nvi")";
    EXPECT_THAT(
        session.journal.only({"count", "log ERROR", "notify"}),
        ElementsAre("count overseer.agent.driverupdate cloud_update_SOLR_failed " + files,
                    "log ERROR agent_driverupdate: Get Setup Failed [dbname: drivers][files: " +
                        files + "]: " + refused.message(),
                    "notify <get_setup_failed><reason>HTTP Request Failed: " + refused.message() +
                        "</reason></get_setup_failed>"));
    session.journal.take();
    session.answer(0, 200, support::answerOf({{"agent.nvz", 1, "", ""}}));
    EXPECT_THAT(session.journal.take(), IsEmpty());
}

TEST_F(Setup, AnUnusableUrlIsToldForEachBatch) {
    nv::hosting::Environment broken = nv::hosting::environment();
    broken.solrDriversUrl = "no url";
    const nv::hosting::EnvironmentScope scope(broken);
    session.ask("GET_SETUP");
    const std::string node =
        "notify <get_setup_failed><reason>Failed to create SOLR query</reason></get_setup_failed>";
    EXPECT_THAT(
        session.journal.only({"log ERROR", "notify"}),
        ElementsAre("log ERROR agent_driverupdate: Get Setup Failed [dbname: drivers][files: "
                    R"("a.nvz","b%2C%20c.nvi"]: Failed to create SOLR query)",
                    node,
                    "log ERROR agent_driverupdate: Get Setup Failed [dbname: agents][files: "
                    R"("agent.nvz"]: Failed to create SOLR query)",
                    node));
}

TEST_F(Setup, AListInFlightSwallowsTheListingAndTheNextOneSucceeds) {
    session.host.agentFiles.clear();
    session.command("EXECUTE_AUTO_UPDATE");
    session.ask("GET_SETUP");
    EXPECT_THAT(session.transport->urls(), SizeIs(1));
    session.answer(0, 200, support::answerOf({}));
    EXPECT_THAT(notified(), IsEmpty());
    session.ask("GET_SETUP");
    session.answer(1, 200, support::answerOf({}));
    EXPECT_THAT(notified(), ElementsAre(StartsWith("<setup>")));
}

TEST_F(Setup, AnAnswerAfterTheAgentIsGoneDoesNothing) {
    session.ask("GET_SETUP");
    session.destroyAgent();
    session.journal.take();
    session.transport->answerLate(0, 200, support::answerOf({}));
    session.loop.runReady();
    EXPECT_THAT(notified(), IsEmpty());
}

}  // namespace
