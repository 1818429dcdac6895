#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "state/history_store.h"
#include "state/persisted_nodes.h"
#include "state/schedule_store.h"
#include "state/sqlite_driver_ledger.h"
#include "state_folder.h"

namespace {

using namespace overseer;
using testing::ElementsAre;

TEST(PersistedNodes, ComeBackAfterAReopenAndAreWrittenOnlyWhenTheyChanged) {
    const StateFolder folder;
    const std::string node =
        "<persist_data><excluded_files>a'b\";--</excluded_files></persist_data>";
    {
        const auto database = folder.open();
        PersistedNodes nodes(*database);
        EXPECT_TRUE(valueOf(nodes.store("agent", node)));
        EXPECT_FALSE(valueOf(nodes.store("agent", node)));
    }
    const auto database = folder.open();
    PersistedNodes nodes(*database);
    EXPECT_EQ(valueOf(nodes.find("agent")), node);
    EXPECT_EQ(valueOf(nodes.find("another")), std::nullopt);
    EXPECT_EQ(folder.contentOf(folder.path() / "agents" / "agent.xml"), node);
}

TEST(PersistedNodes, KeepCopiesInsideTheirFolderWhateverTheNameIs) {
    const StateFolder folder;
    const auto database = folder.open();
    PersistedNodes nodes(*database);
    for (const char* name : {"../up", ".hidden", "a/b", "", "caf\xC3\xA9", "a%2F"})
        EXPECT_TRUE(valueOf(nodes.store(name, "<a/>"))) << name;
    std::vector<std::string> copies;
    for (const auto& entry : boost::filesystem::directory_iterator(folder.path() / "agents"))
        copies.push_back(entry.path().filename().string());
    EXPECT_THAT(copies, testing::UnorderedElementsAre("%2E.%2Fup.xml", "%2Ehidden.xml", "a%2Fb.xml",
                                                      ".xml", "caf%C3%A9.xml", "a%252F.xml"));
}

TEST(PersistedNodes, SayWhenOnlyTheCopyFailed) {
    const StateFolder folder;
    const auto database = folder.open();
    folder.write(folder.path() / "agents", "a file in the way");
    PersistedNodes nodes(*database);
    EXPECT_FALSE(nodes.store("agent", "<a/>"));
    EXPECT_EQ(valueOf(nodes.find("agent")), "<a/>");
}

TEST(DriverLedger, GivesBackWhatWasStoredLast) {
    const StateFolder folder;
    {
        const auto database = folder.open();
        SqliteDriverLedger ledger(*database);
        ASSERT_TRUE(ledger.store({"lamp.nvz", 3, "aa", "", 1, 2}));
        ASSERT_TRUE(ledger.store({"lamp.nvz", 7, "bb", "aa", UINT64_MAX, -5}));
        ASSERT_TRUE(ledger.store({"Lamp.nvz", 1, "", "", 0, 0}));
    }
    const auto database = folder.open();
    SqliteDriverLedger ledger(*database);
    const auto record = valueOf(ledger.find("lamp.nvz"));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->version, 7);
    EXPECT_EQ(record->appliedMd5, "bb");
    EXPECT_EQ(record->previousMd5, "aa");
    EXPECT_EQ(record->checkedSize, UINT64_MAX);
    EXPECT_EQ(record->checkedNanoseconds, -5);
    EXPECT_EQ(valueOf(ledger.find("other.nvz")), std::nullopt);
    EXPECT_EQ(valueOf(ledger.all()).size(), 2u);
}

TEST(ScheduleStore, KeepsEveryField) {
    const StateFolder folder;
    StoredScheduleEntry entry;
    entry.name = "Nightly";
    entry.deviceId = 4'000'000'000;
    entry.description = "text";
    entry.hidden = true;
    entry.intervalDays = 3;
    entry.start = boost::posix_time::ptime(boost::gregorian::date(2026, 11, 23),
                                           boost::posix_time::time_duration(3, 58, 0));
    entry.end = boost::posix_time::ptime(boost::posix_time::max_date_time);
    {
        const auto database = folder.open();
        ScheduleStore store(*database);
        entry.id = valueOf(store.add(entry));
        entry.name = "Renamed";
        entry.lastOccurrence = boost::gregorian::date(2026, 11, 24);
        entry.lastDelivery = 77;
        ASSERT_TRUE(store.update(entry));
    }
    const auto database = folder.open();
    ScheduleStore store(*database);
    const auto entries = valueOf(store.all());
    ASSERT_EQ(entries.size(), 1u);
    const StoredScheduleEntry& stored = entries.front();
    EXPECT_EQ(std::tie(stored.id, stored.name, stored.deviceId, stored.description, stored.enabled,
                       stored.hidden, stored.intervalDays, stored.start, stored.end,
                       stored.lastOccurrence, stored.lastDelivery),
              std::tie(entry.id, entry.name, entry.deviceId, entry.description, entry.enabled,
                       entry.hidden, entry.intervalDays, entry.start, entry.end,
                       entry.lastOccurrence, entry.lastDelivery));
}

TEST(ScheduleStore, PassesOverEntriesWhoseTimesCannotBeRead) {
    const StateFolder folder;
    const auto database = folder.open();
    ASSERT_TRUE(
        execute(database->durable(),
                "INSERT INTO schedule(name, device_id, description, enabled, hidden, "
                "interval_days, start, end, last_occurrence, last_delivery) VALUES"
                "('a',1,'',1,0,1,'yesterday','9999-12-31T00:00:00','',0),"
                "('b',1,'',1,0,0,'2026-01-01T00:00:00','9999-12-31T00:00:00','',0),"
                "('c',1,'',1,0,1,'2026-01-01T00:00:00','9999-12-31T00:00:00','nonsense',0)"));
    const auto entries = valueOf(ScheduleStore(*database).all());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries.front().name, "c");
    EXPECT_TRUE(entries.front().lastOccurrence.is_special());
}

std::vector<std::string> textsOf(const std::vector<HistoryRecord>& records) {
    std::vector<std::string> texts;
    for (const HistoryRecord& record : records) texts.push_back(record.text);
    return texts;
}

TEST(HistoryStore, KeepsTheLastRecordsOfEachAgent) {
    const StateFolder folder;
    const auto database = folder.open();
    HistoryStore store(*database, 200);
    valueOf(store.add({0, 0, "quiet", "kept", "", "", ""}));
    ASSERT_TRUE(execute(database->relaxed(), "BEGIN"));
    for (int number = 1; number <= 1000; ++number)
        valueOf(store.add({0, 0, "busy", std::to_string(number), "", "", ""}));
    ASSERT_TRUE(execute(database->relaxed(), "COMMIT"));
    const auto kept = textsOf(valueOf(store.last(10'000)));
    EXPECT_GE(kept.size(), 201u);
    EXPECT_LE(kept.size(), 203u);
    EXPECT_EQ(kept.front(), "kept");
    EXPECT_THAT(textsOf(valueOf(store.last(2))), ElementsAre("999", "1000"));
}

}  // namespace
