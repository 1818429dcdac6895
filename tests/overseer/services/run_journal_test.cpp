#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_clock.h"
#include "services/run_journal.h"
#include "state_folder.h"

namespace {

using namespace overseer;
using testing::ElementsAre;

constexpr const char* kAgent = "agent";

class RunJournalTest : public testing::Test {
  protected:
    void start(std::set<std::string> files, std::set<std::string> excluded = {},
               bool forced = false) {
        journal_.runStarted(kAgent, {forced, std::move(files), std::move(excluded)});
    }
    void notify(const std::string& xml, const std::string& agent = kAgent) {
        journal_.notified({1, 0, agent, xml});
    }
    void refuse(const std::string& file, const std::string& reason) {
        notify("<driver_update_failed><driver_name>" + file + "</driver_name><reason>" + reason +
               "</reason></driver_update_failed>");
    }
    void failQuery(const std::string& reason) {
        notify("<driver_update_failed><reason>" + reason + "</reason></driver_update_failed>");
    }
    void record(const std::string& text, const std::string& result) {
        journal_.recorded({1, 0, kAgent, text, "Driver Update Agent", "Auto Update", result});
    }
    void update(const std::string& file, int version, const std::string& milliseconds) {
        versions_[file] = version;
        journal_.measured(
            {"overseer.agent.driverupdate.updatetime", file, "", std::stoll(milliseconds), true});
        record("Driver Updated: " + file, "Updated");
        notify("<driver_updated><driver_name>" + file + "</driver_name></driver_updated>");
    }
    /// Each file as "NAME BEFORE>AFTER OUTCOME [REASON] [MS]".
    std::vector<std::string> lines() {
        std::vector<std::string> lines;
        const RunRecord found = valueOf(journal_.find(kAgent));
        for (const FileResult& file : found.lastRun.value().files) {
            std::string line = fmt::format("{} {}>{} {}", file.name, file.versionBefore,
                                           file.versionAfter, nameOf(file.outcome));
            if (!file.reason.empty()) line += " [" + file.reason + "]";
            if (file.milliseconds) line += fmt::format(" {}ms", *file.milliseconds);
            lines.push_back(line);
        }
        return lines;
    }
    CatalogueContact contact() { return valueOf(journal_.find(kAgent)).contact; }

    StateFolder folder_;
    std::unique_ptr<Database> database_ = folder_.open();
    RunStore store_{*database_};
    std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>(1000);
    std::map<std::string, int> versions_;
    RunJournal journal_{store_, clock_,
                        [this](const std::string& name) { return versions_[name]; }};
};

TEST_F(RunJournalTest, TellsEveryOutcomeOfARun) {
    versions_ = {{"a.nvz", 1}, {"b.nvz", 2}, {"h.nvz", 5}};
    start({"a.nvz", "b.nvz", "c.nvz", "d: x (1): y.nvi", "e.nvz", "f.nvz", "g.nvz", "h.nvz"},
          {"f.nvz"}, true);
    clock_->pass(std::chrono::seconds(5));
    refuse("b.nvz", "no update available");
    refuse("c.nvz", "version &lt; minimum version");
    update("a.nvz", 9, "1234");
    journal_.downloadFailed("d: x (1): y.nvi", "Operation too slow");
    journal_.downloadFailed("of another run.nvi", "Operation too slow");
    record("Driver Update Failed (md5 mismatch): d: x (1): y.nvi", "Failed");
    record("Driver Update Failed: e.nvz", "Failed");
    update("h.nvz", 4, "1");
    ASSERT_TRUE(journal_.networkIdle());
    EXPECT_THAT(lines(),
                ElementsAre("a.nvz 1>9 updated 1234ms", "b.nvz 2>2 current",
                            "c.nvz 0>0 held back [version < minimum version]",
                            "d: x (1): y.nvi 0>0 failed [md5 mismatch: Operation too slow]",
                            "e.nvz 0>0 failed [the host refused it, see the log]",
                            "f.nvz 0>0 excluded", "g.nvz 0>0 not offered",
                            "h.nvz 5>4 updated [its package is of version 4, not newer] 1ms"));
    const RunSummary run = *valueOf(journal_.find(kAgent)).lastRun;
    EXPECT_TRUE(run.forced);
    EXPECT_EQ(run.started, 1'000'000);
    EXPECT_EQ(run.ended, 1'005'000);
    EXPECT_EQ(run.counts().at(FileOutcome::kFailed), 2u);
    EXPECT_EQ(contact().lastReached, 1'005'000);
}

TEST_F(RunJournalTest, FailsWhatNobodyMentionedWhenAQueryFailed) {
    start({"a.nvz", "b.nvz", "c.nvz"}, {"c.nvz"});
    refuse("a.nvz", "no update available");
    journal_.errorLogged(
        "agent_driverupdate: Updating drivers failed: Error from SOLR: Connection refused");
    failQuery("SOLR Error");
    journal_.runFailed(kAgent, "HTTP Request Failed: no CA file");
    ASSERT_TRUE(journal_.networkIdle());
    EXPECT_THAT(lines(), ElementsAre("a.nvz 0>0 current",
                                     "b.nvz 0>0 failed [SOLR Error (Connection refused)]",
                                     "c.nvz 0>0 excluded"));
    EXPECT_EQ(contact().lastFailureReason, "HTTP Request Failed: no CA file");
    EXPECT_EQ(contact().lastFailure, 1'000'000);
}

TEST_F(RunJournalTest, NotesThatTheCatalogueCouldNotBeReached) {
    start({"a.nvz"});
    failQuery("SOLR Error");
    ASSERT_TRUE(journal_.networkIdle());
    EXPECT_FALSE(contact().lastReached);
    clock_->pass(std::chrono::seconds(60));
    start({"a.nvz"});
    ASSERT_TRUE(journal_.networkIdle());
    EXPECT_EQ(contact().lastReached, 1'060'000);
    EXPECT_EQ(contact().lastFailureReason, "SOLR Error");
}

TEST_F(RunJournalTest, ShowsARunUnderWayAndJoinsASecondOneToIt) {
    start({"a.nvz"});
    refuse("a.nvz", "no update available");
    EXPECT_FALSE(valueOf(journal_.find(kAgent)).lastRun->ended);
    start({"a.nvz", "b.nvz"}, {}, true);
    update("a.nvz", 2, "5");
    refuse("a.nvz", "no update available");
    ASSERT_TRUE(journal_.networkIdle());
    EXPECT_TRUE(valueOf(journal_.find(kAgent)).lastRun->ended);
    EXPECT_THAT(lines(), ElementsAre("a.nvz 0>2 updated 5ms", "b.nvz 0>0 not offered"));
}

TEST_F(RunJournalTest, HearsOnlyWhatConcernsTheAgentsRun) {
    refuse("a.nvz", "no update available");
    start({"a.nvz"});
    notify("<driver_updated><driver_name>a.nvz</driver_name></driver_updated>", "another");
    notify("<host_message><text>driver_updated</text></host_message>");
    notify("not xml at all: driver_updated");
    journal_.recorded({1, 0, kAgent, "Driver Updated: a.nvz", "Other", "Auto Update", "Updated"});
    record("Agent Added: a.nvz", "Failed");
    ASSERT_TRUE(journal_.networkIdle());
    EXPECT_THAT(lines(), ElementsAre("a.nvz 0>0 not offered"));
}

TEST_F(RunJournalTest, ListsOnlySoManyRefusedFilesThatNobodyAskedFor) {
    start({"zz asked.nvz"});
    for (std::size_t i = 0; i < RunJournal::kStrangersListed + 500; ++i)
        refuse(fmt::format("stranger {}.nvz", i), "no update available");
    refuse("zz asked.nvz", "version &lt; minimum version");
    update("zz stranger.nvz", 3, "12");
    const std::vector<std::string> listed = lines();
    ASSERT_EQ(listed.size(), RunJournal::kStrangersListed + 2);
    EXPECT_EQ(listed[listed.size() - 2], "zz asked.nvz 0>0 held back [version < minimum version]");
    EXPECT_EQ(listed.back(), "zz stranger.nvz 0>0 updated");
}

TEST_F(RunJournalTest, IsThereAfterARestartAlsoWithNamesThatAreNoUtf8) {
    start({"a.nvz", "caf\xE9.nvz"});
    update("a.nvz", 3, "77");
    ASSERT_TRUE(journal_.networkIdle());
    const auto before = valueOf(journal_.find(kAgent));
    RunJournal next(store_, clock_, [](const std::string&) { return 0; });
    const auto after = valueOf(next.find(kAgent));
    ASSERT_TRUE(after.lastRun);
    EXPECT_EQ(after.lastRun->files.size(), 2u);
    EXPECT_EQ(after.lastRun->files[0].milliseconds, 77u);
    EXPECT_EQ(after.lastRun->files[0].outcome, FileOutcome::kUpdated);
    EXPECT_EQ(after.lastRun->ended, before.lastRun->ended);
    EXPECT_EQ(after.contact.lastReached, before.contact.lastReached);
    EXPECT_FALSE(valueOf(next.find("another")).lastRun);
}

TEST(RunRecordText, ThatIsNoneGivesNothing) {
    for (const char* text : {"", "{", "[]", "{\"lastRun\":3,\"contact\":{}}"})
        EXPECT_FALSE(runRecordFromJsonText(text)) << text;
}

}  // namespace
