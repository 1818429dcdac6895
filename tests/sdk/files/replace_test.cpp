#include <nv/file.h>
#include <nvhost/replacement.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "temporary_folder.h"

namespace {

namespace fs = boost::filesystem;

ino_t inodeOf(const fs::path& file) {
    struct stat status {};
    return ::stat(file.c_str(), &status) == 0 ? status.st_ino : 0;
}

mode_t modeOf(const fs::path& file) {
    struct stat status {};
    return ::stat(file.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

int entriesIn(const fs::path& folder) {
    return static_cast<int>(
        std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

bool replaces(const fs::path& source, const fs::path& target) {
    boost::system::error_code error;
    nv::file::replace(source, target, error);
    return !error;
}

TEST(Replace, movesTheSourceOverTheTargetAndKeepsItsMode) {
    const TemporaryFolder folder;
    const fs::path target = folder.write("installed/t.nvi", "old");
    ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
    const fs::path source = folder.write("download/t.nvi", "new");
    const ino_t moved = inodeOf(source);

    EXPECT_TRUE(replaces(source, target));
    EXPECT_EQ(contentOf(target), "new");
    EXPECT_EQ(modeOf(target), 0640u);
    EXPECT_EQ(inodeOf(target), moved) << "copied, although a rename needs no room";
    EXPECT_FALSE(fs::exists(source));

    EXPECT_TRUE(replaces(folder.write("download/u.nvi", "new"), folder / "installed/u.nvi"));
    EXPECT_EQ(contentOf(folder / "installed/u.nvi"), "new");
    EXPECT_EQ(entriesIn(folder / "installed"), 2);
}

TEST(Replace, copiesWhereTheSourceLiesOnAnotherFileSystem) {
    const TemporaryFolder folder;
    const TemporaryFolder memory("/dev/shm");
    if (fs::exists(memory.path())) {
        struct stat here {};
        struct stat there {};
        ASSERT_EQ(::stat(folder.path().c_str(), &here), 0);
        ASSERT_EQ(::stat(memory.path().c_str(), &there), 0);
        if (here.st_dev == there.st_dev) GTEST_SKIP() << "one file system only";
    }
    const std::string name(250, 'n');
    const std::string large(300'000, 'x');
    const fs::path target = folder.write(name, "old");
    ASSERT_EQ(::chmod(target.c_str(), 0600), 0);
    EXPECT_TRUE(replaces(memory.write("s", large), target));
    EXPECT_EQ(contentOf(target), large);
    EXPECT_EQ(modeOf(target), 0600u);
    EXPECT_EQ(entriesIn(folder.path()), 1);
}

TEST(Replace, leavesEverythingAsItWasWhenEitherEndIsNoRegularFile) {
    const TemporaryFolder folder;
    const fs::path file = folder.write("file", "content");
    folder.write("folder/inside", "kept");
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(::symlink("file", (folder / "link").c_str()), 0);
    const int before = entriesIn(folder.path());
    for (const char* other : {"folder", "fifo", "link", "missing/child"}) {
        EXPECT_FALSE(replaces(file, folder / other)) << other;
        EXPECT_FALSE(replaces(folder / other, file)) << other;
    }
    EXPECT_FALSE(replaces(folder / "absent", file));
    EXPECT_EQ(contentOf(file), "content");
    EXPECT_EQ(contentOf(folder / "folder/inside"), "kept");
    EXPECT_EQ(entriesIn(folder.path()), before);
}

TEST(Replace, remembersAFailureByNameUntilItIsTakenOrMadeGood) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "marked.nvz");
    const fs::path source = folder.write("source", "x");
    using nv::hosting::takeReplacementFailure;

    EXPECT_FALSE(replaces(source, folder / "marked.nvz"));
    EXPECT_FALSE(takeReplacementFailure("other.nvz"));
    EXPECT_TRUE(takeReplacementFailure("marked.nvz"));
    EXPECT_FALSE(takeReplacementFailure("marked.nvz"));

    EXPECT_FALSE(replaces(source, folder / "marked.nvz"));
    fs::remove(folder / "marked.nvz");
    EXPECT_TRUE(replaces(source, folder / "marked.nvz"));
    EXPECT_FALSE(takeReplacementFailure("marked.nvz"));
}

TEST(PlaceCopy, leavesTheSourceAndNoMark) {
    const TemporaryFolder folder;
    const fs::path source = folder.write("s", "new");
    boost::system::error_code error;
    nv::hosting::placeCopy(source, folder.write("t", "old"), error);
    EXPECT_FALSE(error);
    EXPECT_EQ(contentOf(source), "new");
    EXPECT_EQ(contentOf(folder / "t"), "new");
    nv::hosting::placeCopy(source, folder.path(), error);
    EXPECT_TRUE(error);
    EXPECT_FALSE(nv::hosting::takeReplacementFailure(folder.path().filename().string()));
}

TEST(SiblingName, isRecognisedAgain) {
    EXPECT_TRUE(nv::hosting::isSiblingName(nv::hosting::siblingName()));
    for (const char* other :
         {".put-", ".put-0123456", ".put-0123456x", "put-01234567", ".put-012345678"}) {
        EXPECT_FALSE(nv::hosting::isSiblingName(other)) << other;
    }
}

}  // namespace
