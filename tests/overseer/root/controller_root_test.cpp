#include "root/controller_root.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "root/initialization.h"
#include "root/root_lock.h"
#include "sdk/files/temporary_folder.h"

namespace {

namespace fs = boost::filesystem;
using overseer::ControllerRoot;
using testing::HasSubstr;

mode_t modeOf(const fs::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

std::string errorOf(const overseer::Result<ControllerRoot>& result) {
    return result ? "(none)" : result.error().message;
}

TEST(InitializeRoot, makesARootThatOpens) {
    const TemporaryFolder folder;
    const auto root = overseer::initializeRoot(folder / "new/site");
    ASSERT_TRUE(root) << root.error().message;
    EXPECT_EQ(contentOf(root->caBundle()), contentOf(overseer::kSystemCaBundle));
    EXPECT_THAT(contentOf(root->configurationFile()), HasSubstr("#host-version = \"1.0.0\"\n"));
    EXPECT_EQ(modeOf(root->state()), 0700u);
    EXPECT_EQ(modeOf(root->run()), 0700u);

    fs::remove(root->temporary());
    fs::create_directory(folder / "elsewhere");
    fs::create_symlink(root->path(), folder / "link");
    const auto opened = ControllerRoot::open(folder / "elsewhere/../link/");
    ASSERT_TRUE(opened) << opened.error().message;
    EXPECT_EQ(opened->path(), fs::canonical(folder.path()) / "new/site");
    EXPECT_TRUE(fs::is_directory(opened->temporary()));
    EXPECT_EQ(opened->GetPackagedDriverFolder(), opened->path().string() + "/drivers/packaged");
}

TEST(InitializeRoot, refusesWhatIsThereWithoutTouchingIt) {
    const TemporaryFolder folder;
    ASSERT_TRUE(overseer::initializeRoot(folder / "site"));
    folder.write("site/overseer.conf", "mine");
    EXPECT_THAT(errorOf(overseer::initializeRoot(folder / "site")), HasSubstr("already is"));
    EXPECT_EQ(contentOf(folder / "site/overseer.conf"), "mine");

    folder.write("full/file", "x");
    EXPECT_THAT(errorOf(overseer::initializeRoot(folder / "full")), HasSubstr("not empty"));
    EXPECT_THAT(errorOf(overseer::initializeRoot(folder / "full/file")), HasSubstr("no folder"));
    EXPECT_THAT(errorOf(overseer::initializeRoot(folder / "full/file/below")), HasSubstr("file"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "full"), fs::directory_iterator()), 1);
    fs::create_directories(folder / "disk/lost+found");
    EXPECT_TRUE(overseer::initializeRoot(folder / "disk")) << "a file system of its own";
}

TEST(InitializeRoot, refusesABundleThatVerifiesNobody) {
    const TemporaryFolder folder;
    const std::string good = contentOf(overseer::kSystemCaBundle);
    const std::string end = "-----END CERTIFICATE-----\n";
    const std::string one = good.substr(0, good.find(end) + end.size());
    std::string damaged = one + one;
    damaged[one.size() + 200] = '!';
    for (const std::string& text :
         {std::string(), std::string("no certificate"), damaged, one.substr(0, one.size() / 2)}) {
        const auto file = folder.write("ca.pem", text);
        EXPECT_THAT(errorOf(overseer::initializeRoot(folder / "site", file)), HasSubstr("ca.pem"));
        EXPECT_FALSE(fs::exists(folder / "site"));
    }
    EXPECT_FALSE(overseer::initializeRoot(folder / "site", folder / "absent.pem"));
    EXPECT_TRUE(overseer::initializeRoot(folder / "site", folder.write("ca.pem", one + one)));
}

TEST(ControllerRoot, refusesPathsThatCannotStandInACommandLine) {
    const TemporaryFolder folder;
    for (const char* name : {"a\"b", "a\nb", "a\x7f"}) {
        EXPECT_FALSE(ControllerRoot::at(folder / name)) << name;
        fs::create_directory(folder / name);
        fs::create_symlink(name, folder / "link");
        EXPECT_FALSE(ControllerRoot::at(folder / "link/site")) << name;
        fs::remove(folder / "link");
    }
    EXPECT_TRUE(ControllerRoot::at(folder / "a b'$ü"));
    EXPECT_FALSE(ControllerRoot::at(""));
}

TEST(ControllerRoot, opensOnlyACompleteRoot) {
    const TemporaryFolder folder;
    EXPECT_THAT(errorOf(ControllerRoot::open(folder.path())), HasSubstr("init"));
    const auto root = overseer::initializeRoot(folder / "site");
    ASSERT_TRUE(root);
    fs::remove(root->projectFile());
    EXPECT_THAT(errorOf(ControllerRoot::open(root->path())), HasSubstr("project.xml is missing"));
    EXPECT_THAT(errorOf(overseer::initializeRoot(root->path())), HasSubstr("already is"));
}

TEST(RootLock, isHeldByOneProcessAndNamesIt) {
    const TemporaryFolder folder;
    const auto root = overseer::initializeRoot(folder / "site");
    ASSERT_TRUE(root);
    {
        const auto held = overseer::RootLock::acquire(*root);
        ASSERT_TRUE(held) << held.error().message;
        const auto second = overseer::RootLock::acquire(*root);
        ASSERT_FALSE(second);
        EXPECT_THAT(second.error().message, HasSubstr("process " + std::to_string(::getpid())));
    }
    // A host that was killed leaves its file, not its lock.
    const pid_t child = ::fork();
    if (child == 0) {
        const auto held = overseer::RootLock::acquire(*root);
        ::_exit(held ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(overseer::RootLock::acquire(*root));
}

}  // namespace
