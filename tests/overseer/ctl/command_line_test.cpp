#include <gmock/gmock.h>
#include <filesystem>
#include <fstream>
#include <future>

#include "console_run.h"
#include "ctl/exit_codes.h"
#include "running_server.h"

namespace overseer::ctl {
namespace {

using control::FakeServices;
using control::Outcome;
using control::RunningServer;
using control::TemporaryRoot;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

struct CommandCase {
    const char* name;
    std::vector<std::string> arguments;
    int code;
    const char* out;
    const char* err;
};

class EachCommand : public testing::TestWithParam<CommandCase> {};

TEST_P(EachCommand, SaysWhatItShouldAndExitsAccordingly) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    server.onLoop([](FakeServices& services) { services.publish("<driver_updated/>"); });
    const CommandCase& row = GetParam();
    const Ran ran = runOn(root.path(), row.arguments);
    EXPECT_EQ(ran.code, row.code) << ran.err;
    EXPECT_THAT(ran.out, HasSubstr(row.out));
    EXPECT_THAT(ran.err, HasSubstr(row.err));
    EXPECT_EQ(ran.err.empty(), row.code == kSuccess && *row.err == '\0');
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Commands, EachCommand, testing::Values(
    CommandCase{"Answer", {"command", "GET_STATE"}, kSuccess, "<state>on</state>\n", ""},
    CommandCase{"EmptyAnswer", {"command", "EMPTY"}, kSuccess, "", ""},
    CommandCase{"Throws", {"command", "THROW"}, kFailure, "", "THROW: parameter missing"},
    CommandCase{"UnknownCommand", {"command", "DANCE"}, kFailure, "", "no agent knows the command DANCE"},
    CommandCase{"UnknownAgent", {"--agent", "other", "command", "GET_STATE"}, kFailure, "", "there is no agent \"other\""},
    CommandCase{"NoParameter", {"command", "GET_STATE", "word"}, kFailure, "", "param=value"},
    CommandCase{"MissingFile", {"command", "GET_STATE", "a=@/nowhere"}, kFailure, "", "/nowhere: cannot be read: No such"},
    CommandCase{"FolderForAFile", {"command", "GET_STATE", "a=@/tmp"}, kFailure, "", "/tmp: cannot be read: Is a"},
    CommandCase{"EndlessFile", {"command", "GET_STATE", "a=@/dev/zero"}, kFailure, "", "larger than 64 MB"},
    CommandCase{"NotUtf8", {"command", "GET_STATE", "a=\xff"}, kFailure, "", "not UTF-8"},
    CommandCase{"Settings", {"settings"}, kSuccess, "auto_update_enabled  true\n", ""},
    CommandCase{"SettingsForPrograms", {"settings", "--json"}, kSuccess, "\"name\": \"persist_data\"", ""},
    CommandCase{"History", {"history", "--since", "2026-01-31"}, kSuccess, "Driver Update Agent  Auto Update  Failed", ""},
    CommandCase{"HistoryOfBadDate", {"history", "--since", "2026-02-31"}, kUsage, "", "YYYY-MM-DD"},
    CommandCase{"Variables", {"variables"}, kSuccess, "updater  1000  LAST_MESSAGE  string  Türklingel", ""},
    CommandCase{"Drivers", {"drivers"}, kSuccess, "Türklingel.nvz         12        13  Haustür\ndimmer.nvi              3   missing\n", ""},
    CommandCase{"Schedule", {"schedule"}, kSuccess, " 3  Daily", ""},
    CommandCase{"Fire", {"schedule", "fire", "3"}, kSuccess, "fired: Daily\n", ""},
    CommandCase{"FireUnknown", {"schedule", "fire", "4"}, kFailure, "", "no event \"4\""},
    CommandCase{"FireBelowNothing", {"schedule", "fire", "-1"}, kUsage, "", "\"-1\" is no whole number"},
    CommandCase{"FireOctal", {"schedule", "fire", "010"}, kUsage, "", "\"010\" is no whole number"},
    CommandCase{"EventsBelowNothing", {"events", "--from", "-3"}, kUsage, "", "\"-3\" is no whole number"},
    CommandCase{"EventsBeyondJson", {"events", "--from", "9007199254740993"}, kUsage, "", "to 9007199254740992"},
    CommandCase{"TooMuchHistory", {"history", "--limit", "100001"}, kUsage, "", "from 0 to 100000"},
    CommandCase{"NoTimeAtAll", {"setup", "--timeout", "0"}, kUsage, "", "from 1 to 3600"},
    CommandCase{"NoName", {"evaluate", "x.nvi", "--as", ""}, kUsage, "", "--as: it is empty"},
    CommandCase{"Status", {"status"}, kSuccess, "last run   never", ""},
    CommandCase{"Events", {"events"}, kSuccess, "updater  driver_updated\n", ""},
    CommandCase{"Restore", {"restore", "Tür x.nvz"}, kSuccess, "Tür x.nvz: version 11 is in place again (previous package)", "exclude"},
    CommandCase{"RestoreFails", {"restore", "nothing.nvz"}, kFailure, "", "no earlier package"},
    CommandCase{"CommaExcluded", {"exclude", "add", "a,b.nvz"}, kFailure, "", "commas"},
    CommandCase{"NoCommand", {}, kUsage, "", "subcommand"},
    CommandCase{"BadState", {"auto-update", "per\x1bhaps"}, kUsage, "", "per\\x1bhaps"},
    CommandCase{"Help", {"update", "--help"}, kSuccess, "overseerctl update --forced", ""}),
    [](const auto& row) { return row.param.name; });
// clang-format on

struct UpdateCase {
    const char* name;
    std::vector<control::FileOutcome> files;
    std::vector<std::string> queryFailures;
    int code;
    const char* out;
};

class EachRun : public testing::TestWithParam<UpdateCase> {};

TEST_P(EachRun, ExitsByItsOutcomes) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    const UpdateCase& row = GetParam();
    server.onLoop([&row](FakeServices& services) {
        services.onStart = [&services, &row] {
            services.run->files = row.files;
            services.run->queryFailures = row.queryFailures;
            services.run->finished = control::Instant{};
            services.idle = true;
        };
    });
    const Ran ran = runOn(root.path(), {"update"});
    EXPECT_EQ(ran.code, row.code) << ran.err;
    EXPECT_THAT(ran.out, HasSubstr(row.out));
    EXPECT_EQ(ran.err.empty(), row.queryFailures.empty());
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Runs, EachRun, testing::Values(
    UpdateCase{"Updated", {{"a.nvz", 1, 2, Outcome::kUpdated, "", 1234}}, {}, kSuccess, "a.nvz       1      2  updated  1234\n1 updated\n"},
    UpdateCase{"NothingFailed",
        {{"ä.nvz", 0, 0, Outcome::kHeldBack, "Requires 4.0", {}}, {"b.nvi", 3, 3, Outcome::kCurrent, "", {}},
         {"c.nvi", 3, 3, Outcome::kNotOffered, "", {}}, {"d.nvi", 3, 3, Outcome::kExcluded, "", {}}}, {}, kSuccess,
        "ä.nvz       -      -  held back        Requires 4.0\n"},
    UpdateCase{"FileFailed", {{"a.nvz", 1, 1, Outcome::kFailed, "MD5", 7}, {"b.nvz", 1, 2, Outcome::kUpdated, "", 9}}, {}, kSomeFailed, "1 updated, 1 failed\n"},
    UpdateCase{"QueryFailed", {}, {"SOLR Error"}, kSomeFailed, "no files\n"}),
    [](const auto& row) { return row.param.name; });
// clang-format on

TEST(Update, IsRefusedWithALineOfItsOwn) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    EXPECT_THAT(runOn(root.path(), {"exclude", "list"}).out, "");
    server.onLoop([](FakeServices& services) {
        services.run.emplace();
        services.settingsXml =
            "<persist_data><auto_update_enabled>false</auto_update_enabled>"
            "</persist_data>";
    });
    const Ran off = runOn(root.path(), {"update"});
    EXPECT_EQ(off.code, kRunRefused);
    EXPECT_THAT(off.err, HasSubstr("switched off"));
    const Ran busy = runOn(root.path(), {"update", "--forced"});
    EXPECT_EQ(busy.code, kRunRefused);
    EXPECT_THAT(busy.err, HasSubstr("already in flight"));
}

TEST(Exclusion, IsReadChangedAndSentAsAWhole) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    EXPECT_EQ(runOn(root.path(), {"exclude", "add", "Tür 1.nvz", "b.nvi"}).out,
              "Tür 1.nvz: excluded\nb.nvi: excluded\n");
    EXPECT_EQ(runOn(root.path(), {"exclude", "add", "b.nvi"}).out, "b.nvi: already excluded\n");
    EXPECT_EQ(runOn(root.path(), {"exclude", "list"}).out, "Tür 1.nvz\nb.nvi\n");
    runOn(root.path(), {"exclude", "remove", "Tür 1.nvz", "c.nvi"});
    runOn(root.path(), {"restore", "r.nvz", "--exclude"});
    runOn(root.path(), {"restore", "s.nvz"}, "y\n", true);
    runOn(root.path(), {"restore", "t.nvz"}, "n\n", true);
    server.onLoop([](FakeServices& services) {
        std::vector<std::string> lists;
        for (const FakeServices::Sent& sent : services.sent) {
            lists.push_back(sent.parameters.at("exclude"));
        }
        EXPECT_THAT(lists,
                    ElementsAre("Tür 1.nvz,b.nvi", "b.nvi", "b.nvi,r.nvz", "b.nvi,r.nvz,s.nvz"));
    });
}

TEST(Command, SendsItsParametersLetterForLetter) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    const std::string text = "<d name=\"a b\">\n\"'\\ü</d>\n" + std::string(3'000'000, 'x');
    std::ofstream(root.path() + "/offer.xml", std::ios::binary) << text;
    EXPECT_EQ(runOn(root.path(), {"command", "GET_STATE", "drivers=@" + root.path() + "/offer.xml",
                                  "empty=", "equals=a=b"})
                  .code,
              kSuccess);
    EXPECT_EQ(runOn(root.path(), {"auto-update", "off"}).out, "automatic updating is off\n");
    server.onLoop([&text](FakeServices& services) {
        ASSERT_EQ(services.sent.size(), 2u);
        EXPECT_TRUE(services.sent[0].parameters.at("drivers") == text);
        EXPECT_EQ(services.sent[0].parameters.at("empty"), "");
        EXPECT_EQ(services.sent[0].parameters.at("equals"), "a=b");
        EXPECT_EQ(services.sent[1].parameters.at("auto_update_enabled"), "false");
    });
}

TEST(EveryCommand, SaysWhereNobodyListens) {
    const TemporaryRoot root("/" + std::string(120, 'r'));
    for (const char* name : {"status", "events", "update", "settings"}) {
        const Ran ran = runOn(root.path(), {name});
        EXPECT_EQ(ran.code, kNoHost);
        EXPECT_THAT(ran.err,
                    HasSubstr("no overseer runs on " + root.path() + ": nobody listens on " +
                              root.path() + "/run/overseer.sock\n"));
    }
}

TEST(EveryCommand, FailsWhenItsOutputCannotBeWritten) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    server.onLoop([](FakeServices& services) { services.publish("<driver_updated/>"); });
    const std::vector<std::string> commands[] = {
        {"status"}, {"--help"}, {"events"}, {"events", "--follow", "--from", "1"}};
    for (std::vector<std::string> arguments : commands) {
        std::istringstream in;
        std::ostream full(nullptr);
        std::ostringstream err;
        Console console{in, full, err, false, false, false};
        const Interruption interruption;
        arguments.insert(arguments.begin(), {"--root", root.path()});
        EXPECT_EQ(run(arguments, console, interruption), kFailure) << arguments[2];
        EXPECT_THAT(err.str(), HasSubstr("standard output cannot be written")) << arguments[2];
    }
}

TEST(Events, GoOnFromTheLastNumberOverARestart) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    server.onLoop([](FakeServices& services) { services.publish("<old/>"); });
    Background events(root.path(), {"events", "--follow", "--from", "1"}, false);
    events.out.await("#1  ");
    server.stop();
    server.onLoop([](FakeServices& services) {
        services.publish("<driver_updated><driver_name>a\nb.nvz</driver_name></driver_updated>");
    });
    events.err.await("the host went away");
    server.startAgain();
    events.out.await("#2  ");
    server.onLoop([](FakeServices& services) { services.publish("<last/>"); });
    events.out.await("#3  ");
    events.interruption.request();
    EXPECT_EQ(events.end(), kInterrupted);
    EXPECT_THAT(events.out.text(), HasSubstr("driver_updated  driver_name: a\\x0ab.nvz\n"));
    EXPECT_EQ(events.out.text().find("#1  "), events.out.text().rfind("#1  "));
}

TEST(Update, ShowsProgressAndLeavesTheRunToTheHostWhenInterrupted) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    server.onLoop([](FakeServices& services) {
        services.onStart = [&services] {
            services.run->files = {{"a.nvz", 1, 2, Outcome::kUpdated, "", 5}};
        };
    });
    Background update(root.path(), {"update"}, true);
    update.out.await("1 updated so far");
    update.interruption.request();
    EXPECT_EQ(update.end(), kInterrupted);
    EXPECT_THAT(update.err.text(), HasSubstr("the run goes on in the host"));
    EXPECT_THAT(update.out.text(), Not(HasSubstr("FILE")));
}

TEST(Update, SaysWhenTheHostStopsUnderTheRun) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    std::promise<void> started;
    server.onLoop([&started](FakeServices& services) {
        services.onStart = [&started] { started.set_value(); };
    });
    Background update(root.path(), {"update"}, false);
    started.get_future().get();
    server.stop();
    EXPECT_EQ(update.end(), kFailure);
    EXPECT_THAT(update.err.text(), HasSubstr("tells what came of the run"));
}

}  // namespace
}  // namespace overseer::ctl
