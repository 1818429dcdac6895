// The commands whose outcome comes later, as a notification or not at all.
#include <gmock/gmock.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "console_run.h"
#include "ctl/exit_codes.h"
#include "running_server.h"

namespace overseer::ctl {
namespace {

using control::FakeServices;
using control::RunningServer;
using control::TemporaryRoot;
using testing::HasSubstr;

constexpr const char* kListing =
    "<setup><drivers><driver include=\"false\"><filename>Türklingel.nvz</filename><version>13"
    "</version><model>T1&#27;</model><manufacturer>Maker</manufacturer></driver></drivers><agents>"
    "<driver include=\"true\"><filename>a.nvz</filename><version>4</version></driver></agents>"
    "</setup>";

class LaterOutcome : public testing::Test {
  protected:
    LaterOutcome() {
        server.onLoop([](FakeServices& services) {
            services.agentList[0].answeringCommands.emplace_back("GET_SETUP");
            services.agentList[0].plainCommands.emplace_back("AUTO_ADD_AGENT");
        });
    }
    /// What the next command has the agent do.
    void onCommand(std::function<void(FakeServices&)> what) {
        server.onLoop([&what](FakeServices& services) {
            services.onCommand = [&services, what] { what(services); };
        });
    }
    Ran run(const std::vector<std::string>& arguments) const {
        return runOn(root.path(), arguments);
    }
    std::size_t sent() {
        std::size_t count = 0;
        server.onLoop([&count](FakeServices& services) { count = services.sent.size(); });
        return count;
    }

    const TemporaryRoot root;
    RunningServer server{root.path()};
};

TEST_F(LaterOutcome, TheListingIsShownBesideWhatIsInstalled) {
    onCommand([](FakeServices& services) { services.publish(kListing); });
    const Ran table = run({"setup"});
    EXPECT_EQ(table.code, kSuccess) << table.err;
    EXPECT_EQ(table.out,
              "FILE            INSTALLED  CATALOGUE  NEWER  INCLUDED  MODEL   MAKER\n"
              "Türklingel.nvz         12         13  yes    no        T1\\x1b  Maker\n"
              "a.nvz                   -          4  yes    yes\n"
              "2 in the catalogue, 2 of them newer; not offered: dimmer.nvi\n");
    std::string strict = kListing;
    strict.erase(strict.find("&#27;"), 5);
    EXPECT_EQ(run({"setup", "--xml"}).out, strict + "\n");
    const auto json = nlohmann::json::parse(run({"setup", "--json"}).out);
    EXPECT_EQ(json["drivers"][0]["included"], false);
    EXPECT_EQ(json["agents"][0]["catalogueVersion"], 4);
    EXPECT_EQ(run({"setup", "--json", "--xml"}).code, kUsage);
}

TEST_F(LaterOutcome, AListingThatARunSwallowedIsAskedForOnceMore) {
    onCommand([](FakeServices& services) {
        if (services.sent.size() == 2) services.publish(kListing);
    });
    EXPECT_EQ(run({"setup"}).code, kSuccess);
    EXPECT_EQ(sent(), 2u);
    onCommand([](FakeServices&) {});
    const Ran never = run({"setup"});
    EXPECT_EQ(never.code, kFailure);
    EXPECT_THAT(never.err, HasSubstr("no listing, twice"));
    EXPECT_EQ(sent(), 4u);
}

TEST_F(LaterOutcome, AListingThatCannotCompleteEndsByTheTimeLimit) {
    onCommand([](FakeServices& services) { services.idle = false; });
    const Ran ran = run({"setup", "--timeout", "1"});
    EXPECT_EQ(ran.code, kFailure);
    EXPECT_THAT(ran.err, HasSubstr("no listing came within 1 s"));
}

TEST_F(LaterOutcome, AFailedListingSaysWhy) {
    onCommand([](FakeServices& services) {
        services.publish(
            "<get_setup_failed><urldb>agents</urldb><error>Could not parse the "
            "response</error><errorcode>bad tag</errorcode></get_setup_failed>");
    });
    const Ran parsed = run({"setup"});
    EXPECT_EQ(parsed.code, kFailure);
    EXPECT_THAT(parsed.err, HasSubstr("Could not parse the response (agents): bad tag"));
    onCommand([](FakeServices& services) {
        services.publish(
            "<get_setup_failed><urldb>drivers</urldb><error>No list</error>"
            "<errorcode>Success</errorcode></get_setup_failed>");
    });
    EXPECT_THAT(run({"setup"}).err, HasSubstr("No list (drivers): the catalogue refused"));
    onCommand([](FakeServices& services) {
        services.idle = false;
        services.publish(
            "<get_setup_failed><reason>HTTP Request Failed: no CA</reason>"
            "</get_setup_failed>");
    });
    EXPECT_THAT(run({"setup", "--timeout", "60"}).err, HasSubstr("HTTP Request Failed: no CA"));
}

TEST_F(LaterOutcome, NamesThatTheQueryWouldMisreadAreRefusedBeforeAnythingIsSent) {
    const std::pair<const char*, const char*> table[] = {
        {"a b.nvz", "blank"}, {"a\tb.nvz", "blank"}, {"a%20b.nvz", "\"%\""}, {"../a.nvz", "\"/\""},
        {"-a.nvz", "begin"},  {".nvz", "begin"},     {"a.nvi", "package"}};
    for (const auto& [file, reason] : table) {
        const Ran ran = run({"add-agent", "Weather", std::string("--file=") + file});
        EXPECT_EQ(ran.code, kFailure) << file;
        EXPECT_THAT(ran.err, HasSubstr(reason)) << file;
    }
    EXPECT_EQ(run({"add-agent", "Weather", "--version", "newest"}).code, kUsage);
    EXPECT_EQ(sent(), 0u);
}

TEST_F(LaterOutcome, AllFourParametersAreSent) {
    run({"add-agent", "weather-2"});
    run({"add-agent", "W", "--file", "Türklingel.nvz", "--library", "w.so", "--version", "7"});
    server.onLoop([](FakeServices& services) {
        using Parameters = std::map<std::string, std::string>;
        ASSERT_EQ(services.sent.size(), 2u);
        EXPECT_EQ(services.sent[0].parameters, (Parameters{{"name", "weather-2"},
                                                           {"library", ""},
                                                           {"filename", "weather-2.nvz"},
                                                           {"version", "latest"}}));
        EXPECT_EQ(services.sent[1].parameters, (Parameters{{"name", "W"},
                                                           {"library", "w.so"},
                                                           {"filename", "Türklingel.nvz"},
                                                           {"version", "7"}}));
    });
}

struct Told {
    const char* name;
    const char* file;
    const char* node;  ///< null for silence
    int code;
    const char* text;
};

class EachOutcome : public LaterOutcome, public testing::WithParamInterface<Told> {};

TEST_P(EachOutcome, DecidesTheExitCode) {
    const Told& row = GetParam();
    onCommand([&row](FakeServices& services) {
        services.publish("<auto_add_agent><agent_name>other.nvz</agent_name></auto_add_agent>");
        if (row.node != nullptr) services.publish(row.node);
    });
    const Ran ran = run({"add-agent", "W", "--file", row.file});
    EXPECT_EQ(ran.code, row.code);
    EXPECT_THAT(ran.out + ran.err, HasSubstr(row.text));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(AddAgent, EachOutcome, testing::Values(
    Told{"Added", "Türklingel.nvz", "<auto_add_agent><agent_name>Türklingel.nvz</agent_name></auto_add_agent>", kSuccess, "Türklingel.nvz: added, version 12"},
    Told{"Unknown", "w.nvz", "<auto_add_agent_failed><reason>No such agent found</reason></auto_add_agent_failed>", kFailure, "w.nvz was not added: No such agent found"},
    Told{"RefusedByName", "w.nvz", "<auto_add_agent_failed><driver_name>w.nvz</driver_name><reason>invalid file name</reason></auto_add_agent_failed>", kFailure, "invalid file name"},
    Told{"AnotherRefusedByName", "w.nvz", "<auto_add_agent_failed><driver_name>../w.nvz</driver_name><reason>invalid file name</reason></auto_add_agent_failed>", kFailure, "the catalogue offers \"../w.nvz\": invalid file name"},
    Told{"NoAnswer", "w.nvz", "<driver_update_failed><reason>SOLR Error</reason></driver_update_failed>", kFailure, "the catalogue's answer failed: SOLR Error"},
    Told{"ARunsRefusalIsNotMeant", "w.nvz", "<driver_update_failed><driver_name>a.nvz</driver_name><reason>no update available</reason></driver_update_failed>", kFailure, "no line about it"},
    Told{"SilentlyPresent", "Türklingel.nvz", nullptr, kSuccess, "Türklingel.nvz: present already, version 12"},
    Told{"Silent", "w.nvz", nullptr, kFailure, "w.nvz was not added: the log has no line about it"}),
    [](const auto& row) { return row.param.name; });
// clang-format on

TEST_F(LaterOutcome, ARunsFailureIsWaitedForAndNotTakenForTheAgents) {
    server.onLoop([](FakeServices& services) { services.idle = false; });
    onCommand([](FakeServices& services) {
        services.publish("<auto_add_agent><agent_name>w.nvz</agent_name></auto_add_agent>");
    });
    Background adding(root.path(), {"add-agent", "w"}, false);
    adding.err.await("waiting for the end of what is under way");
    EXPECT_EQ(sent(), 0u);
    server.onLoop([](FakeServices& services) {
        services.publish(
            "<driver_update_failed><reason>SOLR Error</reason></driver_update_failed>");
        services.idle = true;
    });
    EXPECT_EQ(adding.end(), kSuccess);
}

TEST_F(LaterOutcome, ASilentRefusalIsExplainedByTheExclusionsOrTheLog) {
    std::filesystem::create_directory(root.path() + "/log");
    const std::string log = root.path() + "/log/overseer.log";
    std::ofstream(log) << "2026-01-01 ERROR before: w.nvz\n";
    onCommand([&log](FakeServices&) {
        std::ofstream(log, std::ios::app) << "2026-01-01 ERROR too old: w.nvz\n2026 INFO more\n";
    });
    EXPECT_THAT(run({"add-agent", "w"}).err,
                HasSubstr("the log says: 2026-01-01 ERROR too old: w.nvz\n"));
    onCommand([](FakeServices&) {});
    EXPECT_THAT(run({"add-agent", "w"}).err, HasSubstr("no line about it"));
    server.onLoop([](FakeServices& services) {
        services.settingsXml =
            "<persist_data><excluded_files>a.nvz,w.nvz</excluded_files></persist_data>";
    });
    EXPECT_THAT(run({"add-agent", "w"}).err, HasSubstr("it is excluded"));
}

}  // namespace
}  // namespace overseer::ctl
