#include "drivers/packaged_agents.h"

#include <gmock/gmock.h>
#include <boost/filesystem/operations.hpp>

#include "overseer/drivers/driver_site.h"

namespace overseer {
namespace {

namespace fs = boost::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string markedAs(int version, const std::string& library) {
    return manifestOf(version, "<agent>true</agent><library>" + library + "</library>");
}

class PackagedAgents : public DriverSite {
  protected:
    /// Applies a package that names `named` and holds `held`.
    AppliedDriver put(const std::string& name, int version, const std::string& named,
                      const std::string& held, Occasion occasion = Occasion::kUpdate) {
        writePackage(driverFile(root, name),
                     {{"driver.xml", markedAs(version, named)}, {held, "ELF"}});
        return application.apply(name, occasion).value();
    }
    Project saved() const { return Project::load(root.projectFile()).value(); }

    Project project = Project::load(root.projectFile()).value();
};

TEST_F(PackagedAgents, aLibraryIsAFileOfTheCopyAndNothingElse) {
    put("w.nvz", 1, "bin/w.so", "bin/w.so");
    fs::create_symlink("/etc/hostname", copy("w.nvz") / "out.so");
    fs::create_symlink("bin/w.so", copy("w.nvz") / "in.so");
    folder.write("site/drivers/packaged/w2.so", "beside");
    struct Row {
        const char* library;
        const char* found;  ///< below the copy; null for a refusal
    };
    const Row table[] = {{"bin/w.so", "bin/w.so"},  {"./bin/w.so", "bin/w.so"},
                         {"/bin/w.so", "bin/w.so"}, {"in.so", "bin/w.so"},
                         {"out.so", nullptr},       {"../w2.so", nullptr},
                         {"bin", nullptr},          {"", nullptr},
                         {"none.so", nullptr}};
    for (const Row& row : table) {
        const auto file = agentLibrary(root, "w.nvz", row.library);
        ASSERT_EQ(file.has_value(), row.found != nullptr) << row.library;
        if (file) {
            EXPECT_EQ(*file, fs::canonical(copy("w.nvz") / row.found)) << row.library;
        }
    }
    EXPECT_FALSE(agentLibrary(root, "gone.nvz", "w.so"));
    EXPECT_FALSE(agentLibrary(root, "w.nvi", "w.so"));
}

TEST_F(PackagedAgents, theAddOperationTakesTheLibraryThatIsThere) {
    struct Row {
        const char* named;
        const char* held;
        const char* wanted;
        const char* library;
    };
    const Row table[] = {{"a.so", "a.so", "", "a.so"},
                         {"a.so", "b.so", "", ""},
                         {"a.so", "b.so", "b.so", "b.so"},
                         {"a.so", "a.so", "none.so", "a.so"}};
    int version = 0;
    for (const Row& row : table) {
        const AppliedDriver applied = put("a.nvz", ++version, row.named, row.held, Occasion::kAdd);
        const auto agent = enterAgent(project, root, "a.nvz", applied, "Chosen", row.wanted);
        ASSERT_TRUE(agent) << agent.error().message;
        EXPECT_EQ(agent->library, row.library) << row.named << " " << row.wanted;
        EXPECT_EQ(saved().agents().at(0).name, "Chosen");
        EXPECT_EQ(saved().agents().at(0).library, row.library);
    }
    const AppliedDriver unmarked =
        application.apply(package("d.nvz", 1).filename().string(), Occasion::kAdd).value();
    ASSERT_TRUE(enterAgent(project, root, "d.nvz", unmarked, "", ""));
    EXPECT_EQ(saved().agents().at(1).name, "Light") << "as the manifest has it";
}

TEST_F(PackagedAgents, anUpdateFollowsTheManifestAndKeepsTheName) {
    ASSERT_TRUE(followAgent(
        project, root, "l.nvz",
        application.apply(package("l.nvz", 1).filename().string(), Occasion::kUpdate).value()));
    EXPECT_THAT(project.agents(), IsEmpty()) << "a driver stays one";
    const std::uint32_t id = project.addDevice("a.nvz", "Device");
    ASSERT_TRUE(followAgent(project, root, "a.nvz", put("a.nvz", 1, "a.so", "a.so")));
    EXPECT_THAT(saved().deviceIds("a.nvz"), ElementsAre(id));
    EXPECT_EQ(saved().agents().at(0).library, "a.so");

    project.addAgent("a.nvz", "Renamed", "a.so");
    ASSERT_TRUE(followAgent(project, root, "a.nvz", put("a.nvz", 2, "b.so", "b.so")));
    EXPECT_EQ(saved().agents().at(0).name, "Renamed");
    EXPECT_EQ(saved().agents().at(0).library, "b.so");
    ASSERT_TRUE(followAgent(project, root, "a.nvz", put("a.nvz", 3, "c.so", "b.so")));
    EXPECT_EQ(saved().agents().at(0).library, "b.so") << "chosen by somebody, and still there";
    ASSERT_TRUE(followAgent(project, root, "a.nvz", put("a.nvz", 4, "c.so", "other")));
    EXPECT_EQ(saved().agents().at(0).library, "");
}

TEST_F(PackagedAgents, whereTheProjectCannotBeWrittenNothingIsEntered) {
    const AppliedDriver applied = put("a.nvz", 1, "a.so", "a.so");
    fs::remove(root.projectFile());
    fs::create_directory(root.projectFile());
    const auto agent = enterAgent(project, root, "a.nvz", applied, "A", "");
    ASSERT_FALSE(agent);
    EXPECT_THAT(agent.error().message, HasSubstr("project.xml"));
    EXPECT_THAT(project.agents(), IsEmpty());
    EXPECT_THAT(project.deviceIds("a.nvz"), IsEmpty());
}

}  // namespace
}  // namespace overseer
