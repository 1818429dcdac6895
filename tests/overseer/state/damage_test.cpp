#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>

#include "state/history_store.h"
#include "state/persisted_nodes.h"
#include "state/schedule_store.h"
#include "state/sqlite_driver_ledger.h"
#include "state/statement.h"
#include "state_folder.h"

namespace {

using namespace overseer;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

constexpr int kHistoryRecords = 300;
constexpr std::size_t kPage = 4096;
const std::string kNode = "<persist_data><excluded_files>lamp.nvz</excluded_files></persist_data>";

void fill(const StateFolder& folder) {
    const auto database = folder.open();
    valueOf(PersistedNodes(*database).store("norvane/agent one", kNode));
    ASSERT_TRUE(execute(database->durable(), "BEGIN"));
    SqliteDriverLedger ledger(*database);
    for (int number = 0; number < 40; ++number)
        ASSERT_TRUE(ledger.store({fmt::format("driver {}.nvz", number), number, "", "", 0, 0}));
    StoredScheduleEntry entry;
    entry.name = "Nightly";
    entry.start = boost::posix_time::ptime(boost::gregorian::date(2026, 1, 1));
    entry.end = boost::posix_time::ptime(boost::posix_time::max_date_time);
    valueOf(ScheduleStore(*database).add(entry));
    ASSERT_TRUE(execute(database->durable(), "COMMIT"));
    ASSERT_TRUE(execute(database->relaxed(), "BEGIN"));
    HistoryStore history(*database);
    for (int number = 1; number <= kHistoryRecords; ++number)
        valueOf(history.add({0, number, "agent", "record " + std::string(80, 'x'), "", "", ""}));
    ASSERT_TRUE(execute(database->relaxed(), "COMMIT"));
}

void overwrite(const StateFolder& folder, std::size_t from, std::size_t size) {
    std::string content = folder.contentOf(folder.database());
    content.replace(from, size, std::string(size, '\x5A'));
    folder.write(folder.database(), content);
}

/// Overwrites the middle one of the pages that hold the history.
void overwriteHistoryPage(const StateFolder& folder) {
    const std::string content = folder.contentOf(folder.database());
    std::vector<std::size_t> pages;
    for (std::size_t page = 1; page < content.size() / kPage; ++page)
        if (content.compare(page * kPage, 1, "\x0D") == 0 &&
            content.substr(page * kPage, kPage).find("record xxx") != std::string::npos)
            pages.push_back(page);
    ASSERT_GT(pages.size(), 2u);
    overwrite(folder, pages[pages.size() / 2] * kPage, kPage);
}

void runSql(const StateFolder& folder, const char* sql) {
    sqlite3* opened = nullptr;
    ASSERT_EQ(sqlite3_open(folder.database().c_str(), &opened), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(opened, sql, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(opened);
}

struct Damage {
    const char* name;
    std::function<void(const StateFolder&)> inflict;
    std::size_t leastHistory;  ///< records that must come over
};

class DamagedDatabase : public testing::TestWithParam<Damage> {};

TEST_P(DamagedDatabase, IsSetAsideAndWhatCanBeReadIsCarriedOver) {
    const StateFolder folder;
    fill(folder);
    GetParam().inflict(folder);
    const std::string damaged = folder.contentOf(folder.database());

    const auto database = folder.open();

    ASSERT_TRUE(database->repair());
    EXPECT_THAT(*database->repair(), HasSubstr("overseer.db.damaged-20261123-010203"));
    EXPECT_EQ(folder.contentOf(folder.path() / "overseer.db.damaged-20261123-010203"), damaged);
    EXPECT_EQ(valueOf(PersistedNodes(*database).find("norvane/agent one")), kNode);
    const auto history = valueOf(HistoryStore(*database).last(1000));
    EXPECT_GE(history.size(), GetParam().leastHistory);
    if (!history.empty()) {
        EXPECT_EQ(history.front().id, 1);
        EXPECT_EQ(history.back().id, kHistoryRecords);
        EXPECT_EQ(valueOf(SqliteDriverLedger(*database).all()).size(), 40u);
        EXPECT_EQ(valueOf(ScheduleStore(*database).all()).size(), 1u);
    }
}

TEST_P(DamagedDatabase, IsRepairedOnceAndTakesWritesAgain) {
    const StateFolder folder;
    fill(folder);
    GetParam().inflict(folder);
    const std::string second = "<persist_data/>";
    valueOf(PersistedNodes(*folder.open()).store("norvane/agent one", second));

    const auto database = folder.open();

    EXPECT_FALSE(database->repair());
    EXPECT_EQ(valueOf(PersistedNodes(*database).find("norvane/agent one")), second);
    EXPECT_THAT(folder.names(), Not(Contains(HasSubstr(".fresh"))));
}

INSTANTIATE_TEST_SUITE_P(
    Table, DamagedDatabase,
    testing::Values(
        Damage{"CutToNothing",
               [](const StateFolder& at) { boost::filesystem::resize_file(at.database(), 0); }, 0},
        Damage{"CutToHalf",
               [](const StateFolder& at) {
                   const auto size = boost::filesystem::file_size(at.database());
                   boost::filesystem::resize_file(at.database(), size / 2 / kPage * kPage);
               },
               0},
        Damage{"FirstPageOverwritten", [](const StateFolder& at) { overwrite(at, 0, kPage); }, 0},
        Damage{"AnotherFormat", [](const StateFolder& at) { overwrite(at, 44, 4); }, 0},
        Damage{"HistoryPageOverwritten", overwriteHistoryPage, 200},
        Damage{"TableMissing", [](const StateFolder& at) { runSql(at, "DROP TABLE runs"); },
               kHistoryRecords},
        Damage{"ColumnMissing",
               [](const StateFolder& at) { runSql(at, "ALTER TABLE runs DROP COLUMN record"); },
               kHistoryRecords},
        Damage{"VersionLost",
               [](const StateFolder& at) { runSql(at, "DROP TABLE runs; PRAGMA user_version=0"); },
               kHistoryRecords},
        Damage{"AnotherKindOfFile",
               [](const StateFolder& at) { at.write(at.database(), std::string(9000, 'z')); }, 0}),
    [](const auto& parameter) { return parameter.param.name; });

TEST(LostDatabase, GivesSettingsBackFromTheirCopies) {
    const StateFolder folder;
    fill(folder);
    boost::filesystem::remove(folder.database());

    const auto database = folder.open();

    ASSERT_TRUE(database->repair());
    EXPECT_THAT(*database->repair(), HasSubstr("settings of norvane/agent one from their copy"));
    EXPECT_EQ(valueOf(PersistedNodes(*database).find("norvane/agent one")), kNode);
}

TEST(EmptiedDatabase, IsSetAsideTogetherWithItsLog) {
    const StateFolder folder;
    fill(folder);
    boost::filesystem::resize_file(folder.database(), 0);
    folder.write(folder.database().string() + "-wal", "a log");
    const auto database = folder.open();
    EXPECT_EQ(folder.contentOf(folder.path() / "overseer.db.damaged-20261123-010203-wal"), "a log");
}

TEST(LostDatabase, PassesOverCopiesThatAreNotWellFormed) {
    const StateFolder folder;
    fill(folder);
    boost::filesystem::remove(folder.database());
    folder.write(folder.path() / "agents" / "torn.xml", "<persist_data><excl");
    folder.write(folder.path() / "agents" / "%2Gx.xml", "<a/>");

    const auto database = folder.open();

    EXPECT_TRUE(valueOf(PersistedNodes(*database).find("norvane/agent one")));
    EXPECT_FALSE(valueOf(PersistedNodes(*database).find("torn")));
}

TEST(Database, KeepsBothGuaranteesApart) {
    const StateFolder folder;
    const auto database = folder.open();
    const auto synchronous = [](sqlite3* connection) {
        Statement statement = valueOf(Statement::prepare(connection, "PRAGMA synchronous"));
        valueOf(statement.step());
        return statement.integer(0);
    };
    EXPECT_EQ(synchronous(database->durable()), 2);
    EXPECT_EQ(synchronous(database->relaxed()), 1);
}

}  // namespace
