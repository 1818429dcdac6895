#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <fstream>
#include <sstream>

#include "services/log_layout.h"
#include "services/log_setup.h"
#include "state_folder.h"

namespace {

using namespace overseer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class LogTest : public testing::Test {
  protected:
    ~LogTest() override { closeLog(); }

    LogSettings settings() const {
        LogSettings settings;
        settings.folder = folder_.path();
        return settings;
    }
    std::string log() const { return folder_.contentOf(folder_.path() / "overseer.log"); }
    static void write(const std::string& text) {
        log4cplus::Logger::getRoot().log(log4cplus::WARN_LOG_LEVEL, text, "/a/b/source.cpp", 12,
                                         "f");
    }

    StateFolder folder_;
};

TEST(EscapeControlCharacters, LeavesNoWayToForgeALineOrToSteerATerminal) {
    const std::pair<std::string, std::string> rows[] = {
        {"plain caf\xC3\xA9 \"x\"", "plain caf\xC3\xA9 \"x\""},
        {"a\nb\r\tc", "a\\nb\\r\\tc"},
        {std::string("\0\x1B[31m\x7F", 7), "\\x00\\x1B[31m\\x7F"},
        {"back\\nslash", "back\\\\nslash"},
        {"\xC2\x9B"
         "31m",
         "\\xC2\\x9B31m"},
        {"\xE2\x80\xA8|\xE2\x80\xA9|\xE2\x80\x94", "\\xE2\\x80\\xA8|\\xE2\\x80\\xA9|\xE2\x80\x94"},
        {"cut \xC2", "cut \xC2"},
    };
    for (const auto& [text, escaped] : rows) EXPECT_EQ(escapeControlCharacters(text), escaped);
}

TEST_F(LogTest, GoesOnWithoutALossWhenTheDiskHasRoomAgain) {
    const auto file = folder_.path() / "overseer.log";
    boost::filesystem::create_symlink("/dev/full", file);
    ASSERT_TRUE(setUpLog(settings()));
    write("lost");
    boost::filesystem::remove(file);
    std::ofstream(file.string()) << "before\n";
    write("after");
    write("and on");
    EXPECT_THAT(log(), MatchesRegex("before\n.*WARN  after.*\n.*WARN  and on.*\n"));
}

TEST_F(LogTest, WritesOneLineForEachRecordWhateverItsText) {
    ASSERT_TRUE(setUpLog(settings()));
    write("first\n2026-01-01T00:00:00.000Z ERROR forged");
    EXPECT_THAT(log(),
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z "
                             "WARN  first\\\\n2026-01-01T00:00:00.000Z ERROR forged "
                             "\\(source\\.cpp:12\\)\n"));
}

TEST_F(LogTest, CountsTheLastSettingsAndWritesEachLineOnce) {
    ASSERT_TRUE(setUpLog(settings()));
    LogSettings strict = settings();
    strict.level = "error";
    ASSERT_TRUE(setUpLog(strict));
    LOG4CPLUS_WARN(log4cplus::Logger::getRoot(), "hidden");
    LOG4CPLUS_ERROR(log4cplus::Logger::getRoot(), "shown");
    EXPECT_THAT(log(), Not(HasSubstr("hidden")));
    EXPECT_EQ(log().find("shown"), log().rfind("shown"));
}

TEST_F(LogTest, RotatesAndKeepsSoManyFiles) {
    LogSettings small = settings();
    small.fileBytes = 200u << 10;
    small.rotatedFiles = 2;
    ASSERT_TRUE(setUpLog(small));
    for (int number = 0; number < 1000; ++number) write(std::string(1000, 'x'));
    EXPECT_THAT(folder_.names(), ElementsAre("overseer.log", "overseer.log.1", "overseer.log.2"));
    for (const std::string& name : folder_.names())
        EXPECT_LE(boost::filesystem::file_size(folder_.path() / name), 202u << 10) << name;
}

TEST_F(LogTest, SaysWhatIsWrongWithItsSettings) {
    LogSettings unknown = settings();
    unknown.level = "loud";
    ASSERT_FALSE(setUpLog(unknown));
    EXPECT_THAT(setUpLog(unknown).error().message, HasSubstr("loud"));
    boost::filesystem::create_directory(folder_.path() / "overseer.log");
    ASSERT_FALSE(setUpLog(settings()));
    EXPECT_THAT(setUpLog(settings()).error().message, HasSubstr("overseer.log"));
}

TEST_F(LogTest, TellsObserversOfErrorsOnly) {
    ASSERT_TRUE(setUpLog(settings()));
    std::vector<std::string> heard;
    observeErrors([&](const std::string& text) { heard.push_back(text); });
    write("a warning");
    LOG4CPLUS_ERROR(log4cplus::Logger::getRoot(), "an error\n");
    EXPECT_THAT(heard, ElementsAre("an error\n"));
}

}  // namespace
