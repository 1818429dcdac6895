#include <gmock/gmock.h>

#include "running_server.h"

namespace overseer::control {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct ResourceCase {
    const char* name;
    const char* method;
    const char* target;
    const char* body;
    const char* status;
    const char* content;
};

class EachResource : public testing::TestWithParam<ResourceCase> {};

TEST_P(EachResource, AnswersOverTheSocket) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    const ResourceCase& row = GetParam();
    const std::string reply = exchange(root.path(), row.method, row.target, row.body);
    EXPECT_THAT(reply, StartsWith(std::string("HTTP/1.1 ") + row.status));
    EXPECT_THAT(reply, HasSubstr(row.content));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Answers, EachResource, testing::Values(
    ResourceCase{"Index", "GET", "/", "", "200", R"({"method":"POST","path":"/agents/*/commands/*"})"},
    ResourceCase{"Agents", "GET", "/agents", "", "200", R"("answeringCommands":["GET_STATE","EMPTY"])"},
    ResourceCase{"Answer", "POST", "/agents/updater/commands/GET_STATE", "", "200", "application/xml\r\nContent-Length: 17"},
    ResourceCase{"NoAnswer", "POST", "/agents/updater/commands/SET_STATE", R"({"on":true,"n":2,"t":"x"})", "204", "Cache-Control"},
    ResourceCase{"Settings", "GET", "/agents/updater/settings", "", "200", R"("values":{"auto_update_enabled":"true","excluded_files":""})"},
    ResourceCase{"Start", "POST", "/agents/updater/runs", "{}", "202", R"({"id":11})"},
    ResourceCase{"HistoryWithBrokenText", "GET", "/history?since=2026-01-31T23:59:59Z", "", "200", "text \xef\xbf\xbd end"},
    ResourceCase{"Notifications", "GET", "/notifications", "", "200", R"({"oldest":1,"newest":0,"notifications":[]})"},
    ResourceCase{"Schedule", "GET", "/schedule", "", "200", R"("next":"1970-01-01T00:00:00.000Z")"},
    ResourceCase{"Fire", "POST", "/schedule/3/fire", "", "200", R"("name":"Daily")"},
    ResourceCase{"Drivers", "GET", "/drivers", "", "200", R"("versionInPlace":null)"},
    ResourceCase{"Place", "POST", "/drivers/T%C3%BCr%20x.nvz/place", R"({"path":"/a/b.nvz"})", "200", R"({"file":"Tür x.nvz","version":13,"library":null,"added":true})"},
    ResourceCase{"Restore", "POST", "/drivers/T%C3%BCr%20x.nvz/restore", "", "200", R"({"file":"Tür x.nvz","version":11,"package":"previous"})"},
    ResourceCase{"Status", "GET", "/status", "", "200", R"("nextRuns":[{"id":3)"}),
    [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(Refusals, EachResource, testing::Values(
    ResourceCase{"Unknown", "GET", "/nothing", "", "404", "no_such_resource"},
    ResourceCase{"WrongMethod", "DELETE", "/drivers/a.nvz/restore", "", "405", "Allow: POST"},
    ResourceCase{"UnknownCommand", "POST", "/agents/updater/commands/DANCE", "", "404", "no_such_command"},
    ResourceCase{"ThrowingCommand", "POST", "/agents/updater/commands/THROW", "", "422", R"(THROW: parameter missing: \"drivers\")"},
    ResourceCase{"BodyIsNoJson", "POST", "/agents/updater/commands/GET_STATE", "{\"a\":", "400", "bad_body"},
    ResourceCase{"BodyIsNested", "POST", "/agents/updater/commands/GET_STATE", R"({"a":{"b":"c"}})", "400", "where a text is expected"},
    ResourceCase{"NameTwice", "POST", "/agents/updater/commands/GET_STATE", R"({"a":"1","a":"2"})", "400", "given twice"},
    ResourceCase{"NotUtf8", "POST", "/agents/updater/commands/GET_STATE", "{\"a\":\"\xff\"}", "400", "bad_body"},
    ResourceCase{"NoRunYet", "GET", "/agents/updater/runs/last", "", "404", "no_run"},
    ResourceCase{"UnknownEvent", "POST", "/schedule/9/fire", "", "404", "no_such_event"},
    ResourceCase{"UnknownDriver", "GET", "/drivers/absent.nvz", "", "404", "no_such_driver"},
    ResourceCase{"RefusedDriver", "GET", "/drivers/.nvz", "", "422", "driver_refused"},
    ResourceCase{"PlaceNothing", "POST", "/drivers/a.nvz/place", "{}", "400", "bad_body"},
    ResourceCase{"PlaceFails", "POST", "/drivers/blocked.nvi/place", R"({"path":"/a"})", "422", "place_failed"},
    ResourceCase{"RestoreFails", "POST", "/drivers/nothing.nvz/restore", "", "422", "no earlier package is kept"},
    ResourceCase{"BadNumber", "GET", "/notifications?from=-1", "", "400", "whole number"},
    ResourceCase{"BadMoment", "GET", "/history?since=yesterday", "", "400", "2026-01-31T23:59:59Z"},
    ResourceCase{"BadEscape", "GET", "/drivers/%zz", "", "400", "bad_target"},
    ResourceCase{"HiddenLineFeed", "GET", "/drivers/a%0Ab/restore", "", "400", "bad_target"},
    ResourceCase{"ServiceThrows", "GET", "/history?limit=13", "", "500", "the history broke"}),
    [](const auto& row) { return row.param.name; });
// clang-format on

TEST(Runs, AreRefusedWhileOneIsInFlightOrAutomaticUpdatingIsOff) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    server.onLoop([](FakeServices& services) {
        services.settingsXml =
            "<persist_data><auto_update_enabled>false</auto_update_enabled>"
            "</persist_data>";
    });
    const std::string runs = "/agents/updater/runs";
    EXPECT_THAT(exchange(root.path(), "POST", runs), HasSubstr("switched_off"));
    EXPECT_THAT(exchange(root.path(), "POST", runs, R"({"forced":true})"), HasSubstr("202"));
    EXPECT_THAT(exchange(root.path(), "POST", runs, R"({"forced":true})"),
                HasSubstr("run_in_flight"));
}

TEST(Runs, AreWaitedForUntilTheNetworkIsIdle) {
    const TemporaryRoot root;
    Limits limits;
    limits.look = std::chrono::milliseconds(1);
    RunningServer server(root.path(), limits);
    exchange(root.path(), "POST", "/agents/updater/runs");
    const std::string last = "/agents/updater/runs/last?wait=finished";
    EXPECT_THAT(exchange(root.path(), "GET", last + "&timeout=0"), HasSubstr(R"("running":true)"));

    RawPeer peer(root.path());
    peer.send("GET " + last + " HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n");
    exchange(root.path(), "GET", "/host");
    server.onLoop([](FakeServices& services) {
        services.run->finished = Instant{};
        services.run->files = {{"a.nvz", 1, 2, Outcome::kUpdated, "", 40}};
        services.run->queryFailures = {"SOLR Error"};
        services.idle = true;
    });
    const std::string reply = peer.readToEnd();
    EXPECT_THAT(reply, HasSubstr(R"("running":false,"failed":true,"counts":{"updated":1,)"));
    EXPECT_THAT(reply, HasSubstr(R"("outcome":"updated","reason":null,"milliseconds":40)"));
}

}  // namespace
}  // namespace overseer::control
