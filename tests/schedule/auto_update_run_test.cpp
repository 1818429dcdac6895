#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"

namespace {

using support::AgentSession;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned int kNormalEvent = 1;
constexpr unsigned int kForcedEvent = 2;

std::string quoted(const std::string& name) {
    return '"' + name + '"';
}

/// A name of that many characters, none of which is escaped, that sorts by its first one.
std::string longName(char first, std::size_t length) {
    return first + std::string(length - 1, 'x');
}

/// 599 blanks, escaped.
const std::string kBlanks = [] {
    std::string escaped;
    for (int i = 0; i < 599; ++i) escaped += "%20";
    return escaped;
}();

struct Batched {
    const char* name;
    std::set<std::string> drivers;
    std::set<std::string> agents;
    std::vector<std::string> lists;
};

class Batches : public testing::TestWithParam<Batched> {};

TEST_P(Batches, HoldEveryNameOnceAndKeepToTheLimit) {
    AgentSession session;
    session.start();
    session.host.driverFiles = GetParam().drivers;
    session.host.agentFiles = GetParam().agents;
    session.command("EXECUTE_AUTO_UPDATE");
    EXPECT_EQ(session.askedFileLists(), GetParam().lists);
}

INSTANTIATE_TEST_SUITE_P(
    Run, Batches,
    testing::Values(
        Batched{"EmptyProject", {}, {}, {""}},
        Batched{"SortedOnce",
                {"b.nvz", "B.nvz"},
                {"a.nvi", "b.nvz"},
                {"\"B.nvz\",\"a.nvi\",\"b.nvz\""}},
        Batched{
            "Escaped", {"a b,c.nvz", "\xc3\xbc%.nvi"}, {}, {"\"a%20b%2Cc.nvz\",\"%C3%BC%25.nvi\""}},
        Batched{"PairAtTheLimit",
                {longName('a', 900), longName('b', 895)},
                {},
                {quoted(longName('a', 900)) + "," + quoted(longName('b', 895))}},
        Batched{"PairOverTheLimit",
                {longName('a', 900), longName('b', 896)},
                {},
                {quoted(longName('a', 900)), quoted(longName('b', 896))}},
        Batched{"FirstAtTheLimit", {longName('a', 1798)}, {}, {quoted(longName('a', 1798))}},
        Batched{"FirstOverTheLimit",
                {longName('a', 1799), "b"},
                {},
                {"", quoted(longName('a', 1799)), quoted("b")}},
        Batched{"LaterOverTheLimit",
                {"a", longName('b', 2000), "c"},
                {},
                {quoted("a"), quoted(longName('b', 2000)), quoted("c")}},
        Batched{"EscapesCount", {std::string(599, ' '), "b"}, {}, {quoted(kBlanks), quoted("b")}}),
    [](const auto& row) { return row.param.name; });

TEST(Run, ManyNamesAreSplitIntoFullBatchesWithoutLoss) {
    AgentSession session;
    session.start();
    for (int i = 1000; i < 2000; ++i) {
        session.host.driverFiles.insert("driver_" + std::to_string(i) + ".nvz");
    }
    session.command("EXECUTE_AUTO_UPDATE");
    const std::vector<std::string> lists = session.askedFileLists();
    const std::size_t item = quoted("driver_1000.nvz").size() + 1;
    std::string all;
    for (std::size_t i = 0; i < lists.size(); ++i) {
        EXPECT_LE(lists[i].size(), 1800U);
        const bool isLast = i + 1 == lists.size();
        EXPECT_TRUE(isLast || lists[i].size() + item > 1800U) << "room left in " << i;
        all += (all.empty() ? "" : ",") + lists[i];
    }
    std::string expected;
    for (const std::string& name : session.host.driverFiles) {
        expected += (expected.empty() ? "" : ",") + quoted(name);
    }
    EXPECT_EQ(all, expected);
}

struct Trigger {
    const char* name;
    unsigned int event;
    bool enabled;
    std::string message;  ///< empty: nothing runs
    std::string filter;
};

class SchedulerEvent : public testing::TestWithParam<Trigger> {};

TEST_P(SchedulerEvent, RunsWhatItStandsFor) {
    AgentSession session;
    session.start();
    session.command("SET_STATE", {{"auto_update_enabled", GetParam().enabled ? "1" : "0"}});
    session.operations().OnSchedulerEvent(GetParam().event);
    if (GetParam().message.empty()) {
        EXPECT_THAT(session.journal.entries(), IsEmpty());
        return;
    }
    EXPECT_THAT(session.journal.take(),
                ElementsAre("message 0 " + GetParam().message,
                            "log DEBUG agent_driverupdate: Executing Auto Update",
                            testing::HasSubstr("+AND+" + GetParam().filter + ":%22true%22")));
}

INSTANTIATE_TEST_SUITE_P(
    Run, SchedulerEvent,
    testing::Values(
        Trigger{"Normal", kNormalEvent, true, "Starting scheduled Auto Update...", "autoUpdate"},
        Trigger{"NormalWhileOff", kNormalEvent, false, "", ""},
        Trigger{"AnyOtherIsNormal", 4711, true, "Starting scheduled Auto Update...", "autoUpdate"},
        Trigger{"Forced", kForcedEvent, true, "Starting scheduled Forced Auto Update...",
                "forceAutoUpdate"},
        Trigger{"ForcedWhileOff", kForcedEvent, false, "Starting scheduled Forced Auto Update...",
                "forceAutoUpdate"}),
    [](const auto& row) { return row.param.name; });

TEST(Run, ByCommandIsSilentUnforcedAndFollowsTheSetting) {
    AgentSession session;
    session.start();
    session.command("EXECUTE_AUTO_UPDATE");
    EXPECT_TRUE(session.journal.only({"message"}).empty());
    EXPECT_THAT(session.transport->urls(),
                ElementsAre(testing::HasSubstr("+AND+autoUpdate:%22true%22")));
    session.answer(0, 200, support::answerOf({}));
    session.command("SET_STATE", {{"auto_update_enabled", "false"}});
    session.journal.take();
    session.command("EXECUTE_AUTO_UPDATE");
    EXPECT_TRUE(session.journal.entries().empty());
}

}  // namespace
