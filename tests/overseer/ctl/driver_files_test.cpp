#include <gmock/gmock.h>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <pugixml.hpp>

#include "console_run.h"
#include "ctl/exit_codes.h"
#include "running_server.h"

// Files at hand: what is asked about them, and what is made of the answers.
namespace overseer::ctl {
namespace {

using control::FakeServices;
using control::RunningServer;
using control::TemporaryRoot;
using testing::ElementsAre;
using testing::HasSubstr;

std::string success(const std::string& name, const std::string& more) {
    return "<driver><driver_name>" + name +
           "</driver_name><update_code>SUCCESS</update_code><can_update_driver>true"
           "</can_update_driver>" +
           more + "</driver>";
}

std::string error(const std::string& name, const std::string& code, const std::string& message) {
    return "<driver><driver_name>" + name + "</driver_name><update_code>" + code +
           "</update_code><update_message>" + message +
           "</update_message><can_update_driver>false</can_update_driver></driver>";
}

const std::string kPlain =
    "<prompt_overwrite>false</prompt_overwrite><requires_restart>false</requires_restart>";
const std::string kAsks =
    "<prompt_overwrite>true</prompt_overwrite><prompt_overwrite_message>Versions are equal."
    "</prompt_overwrite_message><requires_restart>false</requires_restart>";
const std::string kRestarts =
    "<prompt_overwrite>false</prompt_overwrite><requires_restart>true</requires_restart>"
    "<requires_restart_message>Driver requires restart after update.</requires_restart_message>";

class DriverFiles : public testing::Test {
  protected:
    DriverFiles() {
        server.onLoop([this](FakeServices& services) {
            services.agentList[0].answeringCommands.emplace_back("EVALUATE_DRIVER");
            services.agentList[0].plainCommands.emplace_back("UPDATE_DRIVERS");
            services.onCommand = [this, &services] { carryOut(services); };
        });
    }

    /// What an agent does with a command: judges as `verdicts` says, or tells user interfaces what
    /// was applied.
    void carryOut(FakeServices& services) {
        const FakeServices::Sent& sent = services.sent.back();
        const bool judges = sent.command == "EVALUATE_DRIVER";
        pugi::xml_document list;
        list.load_string(sent.parameters.at(judges ? "cur_driver_files" : "driver_files").c_str());
        std::string answer;
        for (const pugi::xml_node file : list.document_element().children()) {
            const std::string name = file.child("driver_name").text().get();
            if (judges) {
                answer += verdictOn(file.child("cur_driver_file").text().get());
            } else if (name != refusedByTheHost) {
                services.publish("<driver_updated><driver_name>" + name +
                                 "</driver_name></driver_updated>");
            }
        }
        if (judges) services.answers[sent.command] = "<drivers>" + answer + "</drivers>";
    }
    std::string verdictOn(const std::string& name) const {
        const auto found = verdicts.find(name);
        return found != verdicts.end() ? found->second : success(name, kPlain);
    }

    std::string file(const std::string& name, const std::string& text) const {
        const std::string path = root.path() + "/" + name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    std::string driver(const std::string& name) const {
        return file(name, "<driver><version>13</version></driver>");
    }

    void inPlace(std::set<std::string> names) {
        server.onLoop([&](FakeServices& services) { services.inPlace = std::move(names); });
    }

    std::vector<FakeServices::Sent> sent(const std::string& command) {
        std::vector<FakeServices::Sent> list;
        server.onLoop([&](FakeServices& services) {
            for (const FakeServices::Sent& each : services.sent) {
                if (each.command == command) list.push_back(each);
            }
        });
        return list;
    }
    std::vector<std::string> placed() {
        std::vector<std::string> names;
        server.onLoop([&names](FakeServices& services) {
            for (const auto& [name, path] : services.placed) names.push_back(name);
        });
        return names;
    }

    Ran run(std::vector<std::string> arguments, const std::string& typed = "",
            bool interactive = false) const {
        return runOn(root.path(), std::move(arguments), typed, interactive);
    }

    TemporaryRoot root;
    std::map<std::string, std::string> verdicts;  ///< of drivers that may not be replaced just so
    std::string refusedByTheHost;
    RunningServer server{root.path()};
};

TEST_F(DriverFiles, ThatCannotBeReadStandBesideTheOthers) {
    verdicts = {{"b.nvi", error("b.nvi", "ERROR_LOADING_DRIVER", "Unable to load")}, {"c.nvi", ""}};
    std::filesystem::create_directory(root.path() + "/folder.nvi");
    const std::vector<std::string> files{
        file("broken.nvz", "no zip"),     driver("a.nvi"), root.path() + "/folder.nvi",
        file("latin.nvi", "<d>\xfc</d>"), driver("b.nvi"), driver("note.txt")};
    std::vector<std::string> arguments{"evaluate"};
    arguments.insert(arguments.end(), files.begin(), files.end());
    const Ran ran = run(arguments);
    EXPECT_EQ(ran.code, kMayNotReplace) << ran.err;
    for (const char* row : {"broken.nvz  no: not a readable package", "a.nvi       yes ",
                            "folder.nvi  no: not a", "latin.nvi   no: the manifest is not UTF-8",
                            "b.nvi       no: Unable to load", "note.txt    no: neither"}) {
        EXPECT_THAT(ran.out, HasSubstr(row));
    }
    EXPECT_EQ(run({"evaluate", driver("a.nvi"), driver("c.nvi")}).code, kFailure)
        << "one answer to two questions";
}

TEST_F(DriverFiles, AreShownToProgramsAsTheAgentAnswers) {
    verdicts = {{"a.nvi", success("true", kAsks)}};
    const Ran json = run({"evaluate", driver("a.nvi"), file("x.nvz", ""), "--json"});
    EXPECT_EQ(json.code, kMayNotReplace);
    EXPECT_THAT(json.out, HasSubstr(R"("driver_name": "true")"));
    EXPECT_THAT(json.out, HasSubstr(R"("prompt_overwrite": true)"));
    EXPECT_THAT(json.err, HasSubstr("x.nvz may not replace anything: not a readable package"));
    const Ran xml = run({"evaluate", driver("a.nvi"), "--xml"});
    EXPECT_EQ(xml.code, kSuccess);
    EXPECT_THAT(xml.out, HasSubstr("<prompt_overwrite>true</prompt_overwrite>"));
    EXPECT_EQ(run({"evaluate", driver("a.nvi"), "--xml", "--json"}).code, kUsage);
}

TEST_F(DriverFiles, TravelUnderTheInstalledNameAndAsUtf8) {
    const std::string text = "<?xml version=\"1.0\" encoding=\"latin1\"?><d><n>\xfc</n></d>";
    EXPECT_EQ(run({"evaluate", file("download.tmp", text), "--as", "Tür & Tor.nvi"}).code,
              kSuccess);
    EXPECT_EQ(run({"evaluate", driver("a.nvi"), driver("b.nvi"), "--as", "c.nvi"}).code, kUsage);
    const auto commands = sent("EVALUATE_DRIVER");
    ASSERT_EQ(commands.size(), 1u);
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(commands[0].parameters.at("cur_driver_files").c_str()));
    const pugi::xml_node item = document.document_element().first_child();
    EXPECT_STREQ(item.child("cur_driver_file").text().get(), "Tür & Tor.nvi");
    EXPECT_STREQ(item.child("new_driver_file").text().get(), "Tür & Tor.nvi");
    EXPECT_STREQ(item.child("new_driver_xml").text().get(),
                 "<?xml version=\"1.0\"?><d><n>ü</n></d>");
}

TEST_F(DriverFiles, TooManyForOneCommandTakeSeveral) {
    // Twice as large in the body of the request, of which the host takes 64 MB.
    const std::string large = file("large.nvi", "<d>" + std::string(11u << 20, '\n') + "</d>");
    const Ran ran = run({"evaluate", large, large, large, driver("a.nvi")});
    EXPECT_EQ(ran.code, kSuccess) << ran.err;
    EXPECT_THAT(ran.out, HasSubstr("a.nvi      yes"));
    EXPECT_EQ(sent("EVALUATE_DRIVER").size(), 2u);
    // As XML it would not fit into any.
    const Ran refused = run({"evaluate", file("signs.nvi", std::string(15u << 20, '&'))});
    EXPECT_EQ(refused.code, kMayNotReplace);
    EXPECT_THAT(refused.out, HasSubstr("no: its manifest is too large"));
}

TEST_F(DriverFiles, AreInstalledUnlessTheyMayNotReplaceWhatIsThere) {
    verdicts = {{"newer.nvi", success("newer.nvi", kRestarts)},
                {"bad.nvi",
                 error("bad.nvi", "ERROR_FAILED_TO_GET_DRIVER_VERSION", "Failed to get version")}};
    inPlace({"newer.nvi", "bad.nvi"});
    const Ran ran = run({"install", driver("newer.nvi"), driver("bad.nvi"), driver("new.nvi"),
                         driver("new.nvi"), driver("blocked.nvi"), driver("last.nvi"), "--yes"});
    EXPECT_EQ(ran.code, kSomeFailed) << ran.err;
    EXPECT_EQ(ran.out,
              "newer.nvi: installed, version 13; the host must restart\n"
              "bad.nvi: not installed: Failed to get version\n"
              "new.nvi: installed, version 13\n"
              "new.nvi: not installed: a file of this name was given before\n"
              "blocked.nvi: not installed: a folder is in the way\n"
              "last.nvi: installed, version 13\n"
              "a restart of the host is needed; it was not asked for (--restart)\n");
    EXPECT_THAT(placed(), ElementsAre("newer.nvi", "new.nvi", "last.nvi"));
    for (const auto& command : sent("UPDATE_DRIVERS")) {
        EXPECT_EQ(command.parameters.at("restart_overseer"), "false");
    }
}

TEST_F(DriverFiles, ThatCallForAQuestionAreAskedAbout) {
    verdicts = {{"same.nvi", success("same.nvi", kAsks)}};
    inPlace({"same.nvi"});
    struct Row {
        const char* typed;
        bool yes;
        bool installed;
    };
    for (const Row& row : {Row{"Yes\n", false, true}, Row{"Yak\n", false, false},
                           Row{"", false, false}, Row{"", true, true}}) {
        server.onLoop([](FakeServices& services) { services.placed.clear(); });
        std::vector<std::string> arguments{"install", driver("same.nvi")};
        if (row.yes) arguments.emplace_back("--yes");
        const Ran ran = run(arguments, row.typed, true);
        EXPECT_EQ(ran.code, row.installed ? kSuccess : kSomeFailed);
        EXPECT_EQ(placed().size(), row.installed ? 1u : 0u);
        EXPECT_EQ(
            ran.out.find("same.nvi: Versions are equal. Overwrite? [y/N]") != std::string::npos,
            !row.yes);
    }
}

TEST_F(DriverFiles, ThatTheHostDoesNotApplyAreNotInstalled) {
    refusedByTheHost = "a.nvi";
    const Ran ran = run({"install", driver("a.nvi"), driver("b.nvi")});
    EXPECT_EQ(ran.code, kSomeFailed);
    EXPECT_THAT(ran.out, HasSubstr("log says why\nb.nvi: installed"));
    EXPECT_THAT(run({"install", driver("a.nvi")}).out, HasSubstr("`overseerctl restore`"))
        << "it is there by now";
}

TEST_F(DriverFiles, OfWhichOneIsUnderWayAreNamedWhenTheUserLeaves) {
    // To the thread that runs the tool: its own process has no other.
    server.onLoop([tool = pthread_self()](FakeServices& services) {
        services.onCommand = [tool] { pthread_kill(tool, SIGINT); };
    });
    const Ran ran = run({"install", driver("a.nvi"), driver("b.nvi")});
    EXPECT_EQ(ran.code, kInterrupted);
    EXPECT_THAT(ran.err, HasSubstr("interrupted; a.nvi may be in place but not applied"));
    EXPECT_THAT(placed(), ElementsAre("a.nvi"));
}

}  // namespace
}  // namespace overseer::ctl
