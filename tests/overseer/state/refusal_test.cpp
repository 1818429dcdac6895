#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>

#include "state/persisted_nodes.h"
#include "state_folder.h"

namespace {

using namespace overseer;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

/// Holds whatever keeps the database from being used, until the test is over.
using Obstacle = std::shared_ptr<void>;

Obstacle runSql(const StateFolder& folder, const char* sql) {
    sqlite3* opened = nullptr;
    EXPECT_EQ(sqlite3_open(folder.database().c_str(), &opened), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(opened, sql, nullptr, nullptr, nullptr), SQLITE_OK);
    return {opened, [](void* closing) { sqlite3_close(static_cast<sqlite3*>(closing)); }};
}

struct Refusal {
    const char* name;
    std::function<Obstacle(const StateFolder&)> obstruct;
    const char* message;
};

class UnusableDatabase : public testing::TestWithParam<Refusal> {};

TEST_P(UnusableDatabase, StopsTheStartAndStaysAsItIs) {
    const StateFolder folder;
    valueOf(PersistedNodes(*folder.open()).store("agent", "<persist_data/>"));
    const Obstacle obstacle = GetParam().obstruct(folder);
    const std::string before = folder.contentOf(folder.database());

    const auto opened = folder.tryOpen();

    ASSERT_FALSE(opened);
    EXPECT_THAT(opened.error().message, HasSubstr(GetParam().message));
    EXPECT_THAT(opened.error().message, HasSubstr("overseer.db"));
    EXPECT_EQ(folder.contentOf(folder.database()), before);
    EXPECT_THAT(folder.names(), Not(Contains(HasSubstr("damaged"))));
}

INSTANTIATE_TEST_SUITE_P(
    Table, UnusableDatabase,
    testing::Values(Refusal{"NewerSchema",
                            [](const StateFolder& at) {
                                runSql(at, "PRAGMA user_version=2");
                                return Obstacle();
                            },
                            "newer version"},
                    Refusal{"LockedForWriting",
                            [](const StateFolder& at) { return runSql(at, "BEGIN IMMEDIATE"); },
                            "locked"},
                    Refusal{"LockedForAll",
                            [](const StateFolder& at) {
                                return runSql(at, "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE");
                            },
                            "locked"},
                    Refusal{"FolderInTheWay",
                            [](const StateFolder& at) {
                                boost::filesystem::remove(at.database());
                                boost::filesystem::create_directory(at.database());
                                return Obstacle();
                            },
                            "not a regular file"},
                    Refusal{"FolderInTheWayOfTheLog",
                            [](const StateFolder& at) {
                                boost::filesystem::create_directory(at.database().string() +
                                                                    "-wal");
                                return Obstacle();
                            },
                            "unable to open"}),
    [](const auto& parameter) { return parameter.param.name; });

TEST(MissingStateFolder, StopsTheStart) {
    const StateFolder folder;
    const auto opened = Database::open(folder.path() / "absent", StateFolder::kNow);
    ASSERT_FALSE(opened);
    EXPECT_THAT(opened.error().message, HasSubstr("absent"));
}

}  // namespace
