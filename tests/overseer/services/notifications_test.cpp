#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_clock.h"
#include "services/messages.h"
#include "services/notifications.h"
#include "state_folder.h"

namespace {

using namespace overseer;
using testing::ElementsAre;
using testing::IsEmpty;

class NotificationsTest : public testing::Test {
  protected:
    NotificationsTest() { reopen(); }

    void reopen(std::size_t kept = Notifications::kKept) {
        notifications_.reset();
        notifications_ = valueOf(Notifications::open(store_, clock_, kept));
    }
    void publish(int count) {
        for (int number = 0; number < count; ++number) notifications_->publish("agent", "<n/>");
    }
    StateFolder folder_;
    std::unique_ptr<Database> database_ = folder_.open();
    RunStore store_{*database_};
    std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>(1000);
    std::unique_ptr<Notifications> notifications_;
};

TEST_F(NotificationsTest, AreHandedOutInPages) {
    EXPECT_THAT(notifications_->page(0, 5), IsEmpty());
    reopen(10);
    publish(25);
    const auto page = notifications_->page(3, 4);
    ASSERT_EQ(page.size(), 4u);
    EXPECT_EQ(page.front().number, notifications_->oldestNumber());
    EXPECT_EQ(page.front().number, 16u);
    EXPECT_EQ(page.back().number, 19u);
    EXPECT_EQ(notifications_->page(24, 4).size(), 2u);
    EXPECT_THAT(notifications_->page(26, 4), IsEmpty());
}

TEST_F(NotificationsTest, AreKeptWithinABoundOfBytes) {
    for (int number = 0; number < 40; ++number)
        notifications_->publish("agent", std::string(1u << 20, 'x'));
    EXPECT_GE(notifications_->oldestNumber(), 9u);
    EXPECT_LE(notifications_->oldestNumber(), 11u);
}

TEST_F(NotificationsTest, GoOnBehindTheLastNumberAfterARestart) {
    publish(3);
    reopen();
    EXPECT_EQ(notifications_->publish("agent", "<n/>"), 4u);
    EXPECT_EQ(notifications_->oldestNumber(), 4u);
}

TEST_F(NotificationsTest, NeverRepeatANumberAfterACrash) {
    publish(1500);
    const auto crashed = notifications_.release();
    reopen();
    EXPECT_GT(notifications_->publish("agent", "<n/>"), 1500u);
    delete crashed;
}

TEST_F(NotificationsTest, CarryMessagesOfTheHost) {
    Messages messages(*notifications_);
    messages.show("agent", "a\x1b < b\t", 0);
    EXPECT_EQ(notifications_->page(0, 1).at(0).time, 1'000'000);
    EXPECT_EQ(notifications_->page(0, 1).at(0).xml,
              "<host_message><text>a &lt; b\t</text><severity>0</severity></host_message>");
}

}  // namespace
