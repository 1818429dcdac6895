#include "drivers/apply.h"

#include <gmock/gmock.h>
#include <nv/system.h>
#include <nvhost/replacement.h>

#include "drivers/driver_check.h"
#include "overseer/drivers/driver_site.h"

namespace overseer {
namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;

class Apply : public DriverSite {};

/// What can have happened to the unpacked copy of version 5 of a package.
struct Damage {
    const char* name;
    void (*inflict)(const fs::path& copy);
};

const Damage kDamages[] = {
    {"nothing there", [](const fs::path& copy) { fs::remove_all(copy); }},
    {"empty, as after a refused unzip",
     [](const fs::path& copy) {
         fs::remove_all(copy);
         fs::create_directory(copy);
     }},
    {"a member missing", [](const fs::path& copy) { fs::remove(copy / "scripts/ü b.lua"); }},
    {"manifest changed, size kept",
     [](const fs::path& copy) {
         std::string text = contentOf(copy / "driver.xml");
         text.replace(text.find("Light"), 5, "Night");
         overwrite(copy / "driver.xml", text);
     }},
    {"manifest torn",
     [](const fs::path& copy) { overwrite(copy / "driver.xml", "<driver><version>9"); }},
    {"a file where a folder was",
     [](const fs::path& copy) {
         fs::remove_all(copy / "www");
         overwrite(copy / "www", "");
     }},
    {"a link that leaves",
     [](const fs::path& copy) { fs::create_symlink("/etc", copy / "scripts/etc"); }},
    {"a link that leads elsewhere than the package's",
     [](const fs::path& copy) {
         fs::remove(copy / "www/newest.png");
         fs::create_symlink("/etc/passwd", copy / "www/newest.png");
     }},
    {"a manifest that is a link",
     [](const fs::path& copy) {
         fs::rename(copy / "driver.xml", copy / "other.xml");
         fs::create_symlink("other.xml", copy / "driver.xml");
     }},
    {"the whole copy a link",
     [](const fs::path& copy) {
         fs::rename(copy, copy.string() + "-real");
         fs::create_symlink(copy.string() + "-real", copy);
     }},
    {"a file in its place",
     [](const fs::path& copy) {
         fs::remove_all(copy);
         overwrite(copy, "x");
     }},
};

TEST_F(Apply, makesTheCopyWholeAndRecordsTheVersion) {
    const fs::path file = package("a light.nvz", 5);
    const auto applied = application.apply("a light.nvz", Occasion::kUpdate);
    ASSERT_TRUE(applied) << applied.error().message;
    EXPECT_EQ(applied->version, 5);
    EXPECT_EQ(applied->name, "Light");
    EXPECT_FALSE(applied->agent);

    const fs::path unpacked = copy("a light.nvz");
    EXPECT_EQ(contentOf(unpacked / "driver.xml"), manifestOf(5));
    EXPECT_EQ(contentOf(unpacked / "scripts/ü b.lua"), "return 5");
    EXPECT_EQ(fs::status(unpacked / "scripts/ü b.lua").permissions() & fs::owner_exe,
              fs::owner_exe);
    EXPECT_EQ(fs::read_symlink(unpacked / "www/newest.png"), "icon.png");

    const std::string md5 = md5Of(file).value();
    EXPECT_EQ(checksum("a light.nvz"), md5);
    EXPECT_EQ(md5.size(), 32u);
    EXPECT_EQ(recorded("a light.nvz"), 5);
    EXPECT_EQ(ledger.records["a light.nvz"].appliedMd5, md5);
    EXPECT_EQ(fs::hard_link_count(file), 2u) << "kept without taking room";
    EXPECT_TRUE(application.flushFolders());
}

TEST_F(Apply, repairsEveryDamageOfACopyOnAnUpdateAndAtAStart) {
    for (const Occasion occasion : {Occasion::kUpdate, Occasion::kStart}) {
        for (const Damage& damage : kDamages) {
            SCOPED_TRACE(damage.name);
            fs::remove_all(copy("l.nvz"));
            const std::string md5 = md5Of(package("l.nvz", 5)).value();
            ASSERT_EQ(apply("l.nvz", Occasion::kInstall), "5");
            damage.inflict(copy("l.nvz"));
            EXPECT_EQ(apply("l.nvz", occasion), "5");
            EXPECT_EQ(contentOf(copy("l.nvz") / "driver.xml"), manifestOf(5));
            EXPECT_EQ(fs::file_size(copy("l.nvz") / "www/icon.png"), 5000u);
            EXPECT_FALSE(fs::exists(copy("l.nvz") / "scripts/etc"));
            EXPECT_EQ(checksum("l.nvz"), md5);
            fs::remove_all(copy("l.nvz").string() + "-real");
        }
    }
    for (fs::directory_iterator entry(root.packagedDrivers()), end; entry != end; ++entry) {
        EXPECT_NE(entry->path().filename().string().front(), '.') << "left behind: " << *entry;
    }
}

TEST_F(Apply, noticesOnAnUpdateWhatAnOlderCopyHasLeft) {
    package("l.nvz", 5);
    apply("l.nvz", Occasion::kUpdate);
    package("l.nvz", 6);
    // As after an emptying that failed half way: of the same size as what belongs there.
    overwrite(copy("l.nvz") / "driver.xml", manifestOf(6));
    EXPECT_EQ(apply("l.nvz", Occasion::kUpdate), "6");
    EXPECT_EQ(contentOf(copy("l.nvz") / "scripts/ü b.lua"), "return 6");
}

TEST_F(Apply, keepsAHigherCopyAtAStartAndReplacesItOtherwise) {
    package("l.nvz", 7);
    ASSERT_EQ(apply("l.nvz", Occasion::kUpdate), "7");
    package("l.nvz", 6);
    EXPECT_THAT(apply("l.nvz", Occasion::kStart), HasSubstr("overseerctl restore l.nvz"));
    EXPECT_EQ(contentOf(copy("l.nvz") / "driver.xml"), manifestOf(7));
    EXPECT_EQ(checksum("l.nvz"), "(none)");
    EXPECT_EQ(recorded("l.nvz"), 7);

    for (const Occasion occasion :
         {Occasion::kUpdate, Occasion::kAdd, Occasion::kInstall, Occasion::kRestore}) {
        package("l.nvz", 7);
        ASSERT_EQ(apply("l.nvz", Occasion::kUpdate), "7");
        package("l.nvz", 6);
        EXPECT_EQ(apply("l.nvz", occasion), "6");
        EXPECT_EQ(contentOf(copy("l.nvz") / "driver.xml"), manifestOf(6));
        EXPECT_EQ(recorded("l.nvz"), 6);
    }
}

TEST_F(Apply, takesACopyThatUnzipMadeAsItIs) {
    const fs::path file = package("l.nvz", 5);
    const fs::path unpacked = copy("l.nvz");
    fs::create_directory(unpacked);
    const std::string line = "unzip \"" + file.string() + "\" -d \"" + unpacked.string() + '"';
    ASSERT_EQ(nv::system(line.c_str()), 0);
    struct stat before {};
    ::stat((unpacked / "driver.xml").c_str(), &before);

    EXPECT_EQ(apply("l.nvz", Occasion::kUpdate), "5");
    struct stat after {};
    ::stat((unpacked / "driver.xml").c_str(), &after);
    EXPECT_EQ(after.st_ino, before.st_ino) << "unpacked a second time";
    EXPECT_EQ(checksum("l.nvz"), md5Of(file).value());
}

TEST_F(Apply, fitsTheLongestNames) {
    const std::string name = std::string(246, 'n') + ".nvz";
    fs::rename(package("short.nvz", 3), driverFile(root, name));
    EXPECT_EQ(apply(name, Occasion::kUpdate), "3");
    EXPECT_EQ(checksum(name).size(), 32u);
}

TEST_F(Apply, readsABareDriversVersion) {
    folder.write("site/drivers/plain/b.nvi", manifestOf(12));
    EXPECT_EQ(apply("b.nvi", Occasion::kUpdate), "12");
    EXPECT_EQ(recorded("b.nvi"), 12);
    // Whatever does not end in .nvz exactly is a bare driver.
    folder.write("site/drivers/plain/B.NVZ", "<d><version>7x</version></d>");
    const auto applied = application.apply("B.NVZ", Occasion::kUpdate);
    ASSERT_TRUE(applied) << applied.error().message;
    EXPECT_EQ(applied->version, 7);
    EXPECT_EQ(applied->name, "B");
}

TEST_F(Apply, looksAtAStartOnlyAtWhatChanged) {
    package("l.nvz", 5);
    const fs::path bare = folder.write("site/drivers/plain/b.nvi", manifestOf(1));
    const std::set<std::string> names = {"l.nvz", "b.nvi", "gone.nvz"};
    const auto first = checkDrivers(names, application);
    ASSERT_EQ(first.size(), 3u);
    EXPECT_EQ(first[0].outcome->version, 1);
    EXPECT_FALSE(first[1].outcome) << "gone.nvz";
    EXPECT_EQ(first[2].outcome->version, 5);

    const int stores = ledger.stores;
    checkDrivers(names, application);
    EXPECT_EQ(ledger.stores, stores) << "nothing changed";

    // A replacement that a crash kept from being applied.
    package("l.nvz", 6);
    overwrite(bare, manifestOf(21));
    checkDrivers(names, application);
    EXPECT_EQ(recorded("l.nvz"), 6);
    EXPECT_EQ(recorded("b.nvi"), 21);
    EXPECT_EQ(ledger.records["b.nvi"].appliedMd5, md5Of(bare).value());
}

}  // namespace
}  // namespace overseer
