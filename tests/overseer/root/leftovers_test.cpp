#include "root/leftovers.h"

#include <gmock/gmock.h>
#include <nvhost/replacement.h>
#include <set>

#include "root/initialization.h"
#include "root/placement.h"
#include "sdk/files/temporary_folder.h"

namespace {

namespace fs = boost::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

std::set<std::string> namesIn(const fs::path& folder) {
    std::set<std::string> names;
    for (fs::directory_iterator entry(folder), end; entry != end; ++entry) {
        names.insert(entry->path().filename().string());
    }
    return names;
}

TEST(Leftovers, areRemovedAndNothingElse) {
    const TemporaryFolder folder;
    const auto root = overseer::initializeRoot(folder / "site");
    ASSERT_TRUE(root);
    for (const char* name : {"drivers/packaged/light.nvz",
                             "drivers/packaged/light/driver.xml",
                             "drivers/packaged/light.0a1b2c3d/half",
                             "drivers/packaged/.put-0a1b2c3d/half",
                             "drivers/packaged/.put-00000000",
                             "drivers/packaged/lamp.deadbeef.nvz",
                             "drivers/packaged/lamp.deadbeef/driver.xml",
                             "drivers/packaged/v.12345678x/f",
                             "drivers/packaged/w.ABCDEF01/f",
                             "drivers/packaged/file.01234567",
                             "drivers/packaged/gone/unzip.out",
                             "drivers/packaged/more/unzip.out",
                             "drivers/packaged/more/driver.xml",
                             "drivers/packaged/there.nvz",
                             "drivers/packaged/there/unzip.out",
                             "drivers/packaged/deep/unzip.out/x",
                             "drivers/plain/.put-01234567",
                             "drivers/plain/a.nvi",
                             "drivers/plain/.hidden",
                             "state/applied/.put-01234567",
                             ".put-01234567",
                             "tmp/deep/file",
                             "tmp/.hidden"}) {
        folder.write(std::string("site/") + name, "x");
    }
    folder.write("outside/kept", "x");
    fs::create_symlink(folder / "outside", root->temporary() / "link");
    fs::create_symlink(folder / "outside", root->packagedDrivers() / "x.01234567");

    const auto removed = overseer::removeLeftovers(*root);
    ASSERT_TRUE(removed) << removed.error().message;
    EXPECT_THAT(namesIn(root->packagedDrivers()),
                ElementsAre("deep", "file.01234567", "lamp.deadbeef", "lamp.deadbeef.nvz", "light",
                            "light.nvz", "more", "there", "there.nvz", "v.12345678x", "w.ABCDEF01",
                            "x.01234567"));
    EXPECT_THAT(namesIn(root->plainDrivers()), ElementsAre(".hidden", "a.nvi"));
    EXPECT_THAT(namesIn(root->appliedPackages()), IsEmpty());
    EXPECT_THAT(namesIn(root->temporary()), IsEmpty());
    EXPECT_FALSE(fs::exists(root->path() / ".put-01234567"));
    EXPECT_TRUE(fs::exists(folder / "outside/kept"));
}

TEST(Leftovers, areLeftWhereTheTemporaryFolderIsNotTheRootsOwn) {
    const TemporaryFolder folder;
    const auto root = overseer::initializeRoot(folder / "site");
    ASSERT_TRUE(root);
    folder.write("outside/kept", "x");
    fs::remove(root->temporary());
    fs::create_symlink(folder / "outside", root->temporary());
    EXPECT_FALSE(overseer::removeLeftovers(*root));
    EXPECT_TRUE(fs::exists(folder / "outside/kept"));
}

TEST(Placement, leavesTheTargetWhereItCannotReplaceIt) {
    const TemporaryFolder folder;
    const fs::path target = folder.write("t", "old");
    fs::permissions(target, fs::owner_read);
    ASSERT_TRUE(overseer::writeInPlace(target, "new", overseer::Flush::kBefore));
    EXPECT_EQ(contentOf(target), "new");
    EXPECT_EQ(fs::status(target).permissions(), fs::owner_read);

    ASSERT_TRUE(overseer::linkInPlace(target, folder / "u"));
    ASSERT_TRUE(overseer::linkInPlace(target, folder / "u")) << "two names of one file already";
    EXPECT_EQ(fs::hard_link_count(target), 2u);
    const TemporaryFolder memory("/dev/shm");
    ASSERT_TRUE(overseer::linkInPlace(target, memory / "copy"));
    EXPECT_EQ(contentOf(memory / "copy"), "new");

    fs::create_directory(folder / "folder");
    EXPECT_FALSE(overseer::writeInPlace(folder / "folder", "x", overseer::Flush::kBefore));
    EXPECT_FALSE(overseer::linkInPlace(target, folder / "folder"));
    EXPECT_FALSE(overseer::copyInPlace(target, folder / "folder"));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("folder", "t", "u"));
}

}  // namespace
