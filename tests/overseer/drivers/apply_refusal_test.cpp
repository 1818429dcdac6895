#include <gmock/gmock.h>
#include <nv/file.h>
#include <nvhost/children.h>
#include <nvhost/replacement.h>
#include <sys/resource.h>
#include <unistd.h>

#include "drivers/apply.h"
#include "overseer/drivers/driver_site.h"

namespace overseer {
namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;
using testing::Not;

class ApplyRefusal : public DriverSite {
  protected:
    /// Whether everything is as a refusal leaves it, with version 5 applied before.
    void expectRefused(const std::string& name, Occasion occasion) {
        const auto applied = application.apply(name, occasion);
        ASSERT_FALSE(applied);
        EXPECT_THAT(applied.error().message, HasSubstr(name));
        EXPECT_THAT(applied.error().message, HasSubstr("overseerctl restore " + name));
        EXPECT_EQ(checksum(name), "(none)");
        EXPECT_EQ(recorded(name), 5);
    }
    void applyFive(const std::string& name) {
        package(name, 5);
        ASSERT_EQ(apply(name, Occasion::kUpdate), "5");
        ASSERT_NE(checksum(name), "(none)");
    }
};

TEST_F(ApplyRefusal, ofNamesThatWouldReachElsewhere) {
    folder.write("site/drivers/packaged/kept/driver.xml", "x");
    for (const std::string& name :
         {std::string(), std::string(".nvz"), std::string(".."), std::string("../kept.nvz"),
          std::string("a/b.nvz"), std::string("/etc/passwd"), std::string("a\"b.nvz"),
          std::string("a\nb.nvz"), std::string("a\x7f.nvi"), std::string(".hidden.nvi"),
          std::string("kept.nvz.nvz"), std::string("a\0.nvi", 6), std::string(256, 'n'),
          std::string(247, 'n') + ".nvz"}) {
        EXPECT_FALSE(application.apply(name, Occasion::kUpdate)) << name;
    }
    EXPECT_TRUE(fs::exists(root.packagedDrivers() / "kept/driver.xml"));
    EXPECT_TRUE(ledger.records.empty());
    const std::string longest = std::string(246, 'n') + ".nvz";
    for (const char* name :
         {"a.b.nvz", "ü *[x].nvz", "-x.nvz", "nvz", "a.nvz.nvi", "..a", longest.c_str()}) {
        EXPECT_EQ(static_cast<bool>(checkDriverFileName(name)), name[0] != '.') << name;
    }
}

TEST_F(ApplyRefusal, ofFilesThatAreNoDrivers) {
    const fs::path file = driverFile(root, "l.nvz");
    applyFive("l.nvz");
    const std::string good = contentOf(file);
    for (const std::string& content :
         {std::string(), std::string("no zip"), good.substr(0, good.size() - 30)}) {
        fs::remove(file);
        overwrite(file, content);
        expectRefused("l.nvz", Occasion::kUpdate);
    }
    fs::remove(file);
    expectRefused("l.nvz", Occasion::kUpdate);
    fs::create_directory(file);
    expectRefused("l.nvz", Occasion::kUpdate);
    fs::remove(file);
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    expectRefused("l.nvz", Occasion::kStart);
    EXPECT_EQ(contentOf(copy("l.nvz") / "driver.xml"), manifestOf(5)) << "the copy is kept";

    for (const char* text : {"", "<d><version>1</version>", "<d/>", "<d><version/></d>"}) {
        folder.write("site/drivers/plain/b.nvi", text);
        EXPECT_FALSE(application.apply("b.nvi", Occasion::kUpdate)) << text;
    }
    EXPECT_EQ(ledger.records.count("b.nvi"), 0u);
}

TEST_F(ApplyRefusal, keepsTheCopyWhenUnpackingFails) {
    applyFive("l.nvz");
    // Its central directory is good, one member's content is not.
    std::string bytes = contentOf(writePackage(
        folder / "bad.zip", {{"driver.xml", manifestOf(6)}, {"data", std::string(9000, 'd')}}));
    const std::size_t local = bytes.find("data");
    bytes[local + 10] ^= 0x55;
    fs::remove(driverFile(root, "l.nvz"));
    overwrite(driverFile(root, "l.nvz"), bytes);
    expectRefused("l.nvz", Occasion::kUpdate);
    EXPECT_EQ(contentOf(copy("l.nvz") / "driver.xml"), manifestOf(5));
    EXPECT_EQ(contentOf(copy("l.nvz") / "scripts/ü b.lua"), "return 5");
}

TEST_F(ApplyRefusal, keepsNothingThatWasUnpackedOfAPackageThatIsNone) {
    applyFive("l.nvz");
    fs::remove(driverFile(root, "l.nvz"));
    overwrite(driverFile(root, "l.nvz"), "no zip");
    for (const std::string& text : {std::string(), manifestOf(6)}) {
        fs::remove_all(copy("l.nvz"));
        folder.write("site/drivers/packaged/l/driver.xml", text);
        folder.write("site/drivers/packaged/l/zeros", "much");
        expectRefused("l.nvz", Occasion::kUpdate);
        EXPECT_FALSE(fs::exists(copy("l.nvz"))) << text;
    }
}

TEST_F(ApplyRefusal, onceAfterAReplacementThatFailed) {
    applyFive("l.nvz");
    boost::system::error_code error;
    nv::file::replace(folder / "absent", driverFile(root, "l.nvz"), error);
    ASSERT_TRUE(error);
    EXPECT_EQ(apply("l.nvz", Occasion::kStart), "5") << "only updates and adds ask";
    expectRefused("l.nvz", Occasion::kUpdate);
    EXPECT_EQ(apply("l.nvz", Occasion::kUpdate), "5");

    nv::file::replace(folder / "absent", driverFile(root, "l.nvz"), error);
    const fs::path download = writePackage(folder / "download", membersOf(6));
    nv::file::replace(download, driverFile(root, "l.nvz"), error);
    ASSERT_FALSE(error);
    EXPECT_EQ(apply("l.nvz", Occasion::kAdd), "6");
}

/// No descriptor can be opened while it lives.
class NoDescriptors {
  public:
    NoDescriptors() {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none{0, before_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

  private:
    rlimit before_{};
};

TEST_F(ApplyRefusal, takesNothingBackAtAStartForAFaultOfTheMachine) {
    applyFive("l.nvz");
    const std::string md5 = checksum("l.nvz");
    folder.write("site/drivers/plain/b.nvi", manifestOf(5));
    ASSERT_EQ(apply("b.nvi", Occasion::kUpdate), "5");
    for (const char* name : {"l.nvz", "b.nvi"}) {
        const auto applied = [&] {
            const NoDescriptors none;
            return application.apply(name, Occasion::kStart);
        }();
        ASSERT_FALSE(applied);
        EXPECT_TRUE(applied.error().ofMachine);
        EXPECT_THAT(applied.error().message, HasSubstr("Too many open files"));
        EXPECT_THAT(applied.error().message, Not(HasSubstr("restore")));
        EXPECT_EQ(recorded(name), 5);
    }
    EXPECT_EQ(checksum("l.nvz"), md5);
}

TEST_F(ApplyRefusal, withoutUnpackingWhileTheHostStops) {
    applyFive("l.nvz");
    fs::remove_all(copy("l.nvz"));
    fs::create_directory(copy("l.nvz"));
    package("l.nvz", 6);
    const auto stopped = [this] {
        nv::hosting::stopChildren();
        expectRefused("l.nvz", Occasion::kUpdate);
        ::_exit(HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(stopped(), testing::ExitedWithCode(0), "") << "in a process of its own";
    EXPECT_TRUE(fs::is_empty(copy("l.nvz")));
    EXPECT_EQ(apply("l.nvz", Occasion::kStart), "6") << "due again at the next start";
}

TEST_F(ApplyRefusal, whenTheVersionCannotBeRecorded) {
    applyFive("l.nvz");
    package("l.nvz", 6);
    ledger.full = true;
    expectRefused("l.nvz", Occasion::kUpdate);
    ledger.full = false;
    EXPECT_EQ(apply("l.nvz", Occasion::kUpdate), "6");
}

TEST_F(ApplyRefusal, whenTheChecksumCannotBeWritten) {
    applyFive("l.nvz");
    fs::remove(checksumFile(root, "l.nvz"));
    fs::create_directory(checksumFile(root, "l.nvz"));
    EXPECT_FALSE(application.apply("l.nvz", Occasion::kUpdate));
}

}  // namespace
}  // namespace overseer
