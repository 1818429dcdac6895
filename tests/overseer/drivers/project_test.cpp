#include "drivers/project.h"

#include <gmock/gmock.h>
#include <set>

#include "sdk/files/temporary_folder.h"

namespace overseer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(Project, keepsWhatAPersonWroteAndGivesNoIdTwice) {
    const TemporaryFolder folder;
    const auto file = folder.write("project.xml",
                                   "<project next-id=\"3\">\n  <!-- upstairs -->\n  <devices>\n"
                                   "    <device id=\"7\" name=\"Lamp &amp; co\" file=\"a.nvz\" "
                                   "room=\"hall\"/>\n"
                                   "    <device id=\"2\" file=\"a.nvz\"/>\n  </devices>\n"
                                   "</project>");
    {
        auto project = Project::load(file);
        ASSERT_TRUE(project) << project.error().message;
        EXPECT_THAT(project->deviceIds("a.nvz"), ElementsAre(2, 7));
        EXPECT_EQ(project->devices()[0].name, "Lamp & co");
        EXPECT_EQ(project->addDevice("b ü.nvi", "<B>"), 8u);
        EXPECT_EQ(project->addAgent("g.nvz", "Agent", "g.so"), 9u);
        EXPECT_EQ(project->addAgent("g.nvz", "Renamed", ""), 9u);
        EXPECT_EQ(project->addAgent("b ü.nvi", "Now an agent", ""), 8u);
        ASSERT_TRUE(project->save());
    }
    const std::string text = contentOf(file);
    EXPECT_THAT(text, HasSubstr("<!-- upstairs -->"));
    EXPECT_THAT(text, HasSubstr("room=\"hall\""));
    auto project = Project::load(file);
    ASSERT_TRUE(project) << project.error().message;
    std::set<std::string> drivers;
    std::set<std::string> agents;
    project->AddDriverFileNames(drivers);
    project->AddAgentFileNames(agents);
    EXPECT_THAT(drivers, ElementsAre("a.nvz"));
    EXPECT_THAT(agents, ElementsAre("b ü.nvi", "g.nvz"));
    EXPECT_EQ(project->agents()[0].name, "Renamed");
    EXPECT_EQ(project->agents()[0].library, "");
    EXPECT_EQ(project->addDevice("c.nvz", ""), 10u);
    EXPECT_THAT(project->deviceIds("none.nvz"), IsEmpty());
}

TEST(Project, leavesAnAgentsFileOutOfTheDriversList) {
    const TemporaryFolder folder;
    const auto project =
        Project::load(folder.write("p.xml",
                                   "<project><devices><device id='1' file='g.nvz'/></devices>"
                                   "<agents><agent id='2' file='g.nvz'/></agents></project>"));
    ASSERT_TRUE(project);
    std::set<std::string> drivers;
    project->AddDriverFileNames(drivers);
    EXPECT_THAT(drivers, IsEmpty());
    EXPECT_THAT(project->deviceIds("g.nvz"), ElementsAre(1, 2));
}

TEST(Project, givesIdsThatItTakesItselfWhateverNextIdSays) {
    const TemporaryFolder folder;
    for (const std::string next : {"4294967294", "4294967295", "99999999999", "-1", "x"}) {
        const auto file = folder.write("p.xml", "<project next-id='" + next +
                                                    "'><devices><device id='4294967294' "
                                                    "file='a.nvz'/></devices></project>");
        auto project = Project::load(file);
        ASSERT_TRUE(project) << next;
        EXPECT_EQ(project->addDevice("b.nvz", ""), 1u) << next;
        EXPECT_EQ(project->addDevice("c.nvz", ""), 2u) << next;
        ASSERT_TRUE(project->save());
        const auto again = Project::load(file);
        ASSERT_TRUE(again) << next << ": " << again.error().message;
        EXPECT_EQ(again->devices().size(), 3u);
    }
}

TEST(Project, namesThePlaceOfWhatItCannotRead) {
    struct Row {
        const char* text;
        const char* place;
    };
    const Row table[] = {
        {"", "p.xml:1:1"},
        {"<project>\n <devices>\n", "p.xml:2:"},
        {"<project>\n  <devices><device></project>", "p.xml:2:"},
        {"<other/>", "root element"},
        {"<project/>\n<project/>", "p.xml:2:2: a second root"},
        {"<project><devices>\n <device file='a.nvz'/></devices></project>", "p.xml:2:3: <device>"},
        {"<project><devices><device id='0' file='a.nvz'/></devices></project>", "id"},
        {"<project><devices><device id='1x' file='a.nvz'/></devices></project>", "id"},
        {"<project><devices><device id='-1' file='a.nvz'/></devices></project>", "id"},
        {"<project><devices><device id='4294967296' file='a.nvz'/></devices></project>", "id"},
        {"<project><devices><device id='1'/></devices></project>", "no name"},
        {"<project><devices><device id='1' file='../a.nvz'/></devices></project>", "../a.nvz"},
        {"<project><devices><device id='1' file='a'/></devices><agents>\n"
         "<agent id='1' file='b'/></agents></project>",
         "p.xml:2:2: the id 1 is there twice"},
    };
    const TemporaryFolder folder;
    for (const Row& row : table) {
        const auto file = folder.write("p.xml", row.text);
        const auto project = Project::load(file);
        ASSERT_FALSE(project) << row.text;
        EXPECT_THAT(project.error().message, HasSubstr(row.place)) << row.text;
        EXPECT_THAT(project.error().message, HasSubstr(file.string()));
        EXPECT_EQ(contentOf(file), row.text);
    }
    EXPECT_FALSE(Project::load(folder / "absent.xml"));
    EXPECT_FALSE(Project::load(folder.path()));
}

}  // namespace
}  // namespace overseer
