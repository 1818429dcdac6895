#include "drivers/package.h"

#include <gmock/gmock.h>

#include "overseer/drivers/driver_site.h"

namespace overseer {
namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;

struct Hostile {
    const char* why;  ///< part of the message
    std::vector<Member> members;
};

TEST(Package, refusesMembersThatWouldNotStayInTheFolder) {
    constexpr mode_t kLink = S_IFLNK | 0777;
    const Hostile table[] = {
        {"does not stay", {{"../evil", "x"}}},
        {"does not stay", {{"a/../../evil", "x"}}},
        {"does not stay", {{"a/..", "x"}}},
        {"does not stay", {{"/etc/evil", "x"}}},
        {"does not stay", {{"a//b", "x"}}},
        {"does not stay", {{".//a", "x"}}},
        {"does not stay", {{"./../a", "x"}}},
        {"does not stay", {{".", "x"}}},
        {"there twice", {{"./a", "x"}, {"a", "y"}}},
        {"does not stay", {{"../", "", S_IFDIR | 0755}}},
        {"leaves", {{"l", "/etc/passwd", kLink}}},
        {"leaves", {{"l", "..", kLink}}},
        {"leaves", {{"a/l", "../../evil", kLink}}},
        {"leaves", {{"l", "", kLink}}},
        // Up after down: where the first part is a link, the way up begins elsewhere.
        {"leaves", {{"a/b/d", "../../t", kLink}, {"l", "a/b/d/../../evil", kLink}}},
        {"both a folder and none", {{"l", "a", kLink}, {"l/evil", "x"}}},
        {"both a folder and none", {{"f", "x"}, {"f/evil", "x"}}},
        {"encrypted", {{"secret", "x", S_IFREG | 0644, true}}},
        {"neither file", {{"fifo", "", S_IFIFO | 0644}}},
        {"neither file", {{"device", "", S_IFCHR | 0644}}},
    };
    const TemporaryFolder folder;
    for (const Hostile& hostile : table) {
        std::vector<Member> members = hostile.members;
        members.push_back({"driver.xml", manifestOf(1)});
        const auto package = Package::open(writePackage(folder / "p.nvz", members));
        ASSERT_FALSE(package) << hostile.members.front().name;
        EXPECT_THAT(package.error().message, HasSubstr(hostile.why));
        EXPECT_THAT(package.error().message, HasSubstr("p.nvz"));
    }
}

TEST(Package, refusesAMemberThatIsThereTwiceAndALinkToAPackage) {
    const TemporaryFolder folder;
    std::string bytes = contentOf(
        writePackage(folder / "p", {{"driver.xml", manifestOf(1)}, {"driver.xmm", manifestOf(9)}}));
    for (std::size_t at = 0; (at = bytes.find("driver.xmm", at)) != std::string::npos;) {
        bytes.replace(at, 10, "driver.xml");
    }
    const auto twice = Package::open(folder.write("twice", bytes));
    ASSERT_FALSE(twice);
    EXPECT_THAT(twice.error().message, HasSubstr("twice"));

    fs::create_symlink("p", folder / "link");
    EXPECT_FALSE(Package::open(folder / "link"));
}

TEST(Package, refusesWhatWouldFillTheDisk) {
    const TemporaryFolder folder;
    std::string bytes =
        contentOf(writePackage(folder / "p", {{"driver.xml", manifestOf(1)}, {"bomb", "x"}}));
    // The size in the central directory: 22 bytes before the name.
    const std::size_t name = bytes.rfind("bomb");
    bytes.replace(name - 22, 4, std::string("\xff\xff\xff\x7f", 4));
    const auto bomb = Package::open(folder.write("bomb", bytes));
    ASSERT_FALSE(bomb);
    EXPECT_THAT(bomb.error().message, HasSubstr("when unpacked"));

    // One that says less than it holds ends where it said.
    bytes = contentOf(writePackage(
        folder / "q", {{"driver.xml", manifestOf(1)}, {"lies", std::string(1u << 20, 'x')}}));
    bytes.replace(bytes.rfind("lies") - 22, 4, std::string("\x10\0\0\0", 4));
    const auto lies = Package::open(folder.write("lies", bytes));
    ASSERT_TRUE(lies) << lies.error().message;
    fs::create_directory(folder / "out");
    EXPECT_FALSE(lies->unpackTo(folder / "out"));
    EXPECT_LE(fs::file_size(folder / "out/lies"), 128u << 10);
}

TEST(Package, unpacksLinksThatStayInsideAndNamesThatBeginWithTheFolderItself) {
    const TemporaryFolder folder;
    const auto package =
        Package::open(writePackage(folder / "p", {{"driver.xml", manifestOf(1)},
                                                  {"./", "", S_IFDIR | 0755},
                                                  {"./a/./b/file", "x"},
                                                  {"a/b/up", "../../driver.xml", S_IFLNK | 0777},
                                                  {"dir", "a/b/", S_IFLNK | 0777}}));
    ASSERT_TRUE(package) << package.error().message;
    fs::create_directory(folder / "out");
    ASSERT_TRUE(package->unpackTo(folder / "out"));
    EXPECT_EQ(contentOf(folder / "out/a/b/up"), manifestOf(1));
    EXPECT_EQ(contentOf(folder / "out/dir/file"), "x");
    EXPECT_TRUE(package->holdsFile("a/b/file"));
    EXPECT_FALSE(package->holdsFile("a/b"));
}

}  // namespace
}  // namespace overseer
