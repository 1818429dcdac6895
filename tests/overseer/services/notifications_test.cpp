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
    std::unique_ptr<Notifications::Subscription> subscribe(std::uint64_t from,
                                                           std::size_t limit = 10'000) {
        return notifications_->subscribe(
            from, [this] { ++woken_; }, limit);
    }
    /// What there is to read, "3" for a notification and "lagged 2" for missing ones.
    static std::vector<std::string> read(Notifications::Subscription& subscription) {
        std::vector<std::string> events;
        while (const auto event = subscription.next())
            events.push_back(event->lagged != 0 ? "lagged " + std::to_string(event->lagged)
                                                : std::to_string(event->notification.number));
        return events;
    }

    StateFolder folder_;
    std::unique_ptr<Database> database_ = folder_.open();
    RunStore store_{*database_};
    std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>(1000);
    std::unique_ptr<Notifications> notifications_;
    int woken_ = 0;
};

TEST_F(NotificationsTest, CarryNumberTimeAgentAndText) {
    const auto subscription = subscribe(0);
    EXPECT_EQ(notifications_->publish("agent", "<a>1</a>"), 1u);
    const auto event = subscription->next();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->notification.number, 1u);
    EXPECT_EQ(event->notification.time, 1'000'000);
    EXPECT_EQ(event->notification.agent, "agent");
    EXPECT_EQ(event->notification.xml, "<a>1</a>");
}

TEST_F(NotificationsTest, AreReplayedFromANumberAndThenFollowed) {
    publish(5);
    const auto replay = subscribe(4);
    const auto live = subscribe(0);
    const auto ahead = subscribe(99);
    publish(1);
    EXPECT_THAT(read(*replay), ElementsAre("4", "5", "6"));
    EXPECT_THAT(read(*live), ElementsAre("6"));
    EXPECT_THAT(read(*ahead), ElementsAre("6"));
}

TEST_F(NotificationsTest, WakeAReaderOnceAfterItReadAllThereWas) {
    const auto subscription = subscribe(0);
    publish(1);
    EXPECT_EQ(woken_, 0);
    read(*subscription);
    publish(3);
    EXPECT_EQ(woken_, 1);
    read(*subscription);
    publish(1);
    EXPECT_EQ(woken_, 2);
}

TEST_F(NotificationsTest, EndAReaderThatFellBehindAndLetItAskAgain) {
    const auto slow = subscribe(0, 3);
    publish(7);
    EXPECT_THAT(read(*slow), ElementsAre("1", "2", "3", "lagged 4"));
    EXPECT_TRUE(slow->ended());
    publish(1);
    EXPECT_THAT(read(*slow), IsEmpty());
    EXPECT_THAT(read(*subscribe(4, 3)), ElementsAre("4", "5", "6", "7", "8"));
}

TEST_F(NotificationsTest, DoNotCountWhatIsReplayedAgainstTheReader) {
    publish(50);
    const auto replay = subscribe(1, 3);
    publish(3);
    EXPECT_EQ(read(*replay).size(), 53u);
    EXPECT_FALSE(replay->ended());
}

TEST_F(NotificationsTest, SayHowManyAreNoLongerKept) {
    reopen(10);
    publish(25);
    const auto replay = subscribe(3);
    EXPECT_EQ(read(*replay).front(), "lagged 13");
    const auto slow = subscribe(0);
    publish(30);
    const auto events = read(*slow);
    EXPECT_EQ(events.front(), "lagged 20");
    EXPECT_EQ(events.size(), 11u);
}

TEST_F(NotificationsTest, AreKeptWithinABoundOfBytes) {
    for (int number = 0; number < 40; ++number)
        notifications_->publish("agent", std::string(1u << 20, 'x'));
    const auto replay = subscribe(1);
    const auto first = replay->next();
    ASSERT_TRUE(first);
    EXPECT_GE(first->lagged, 8u);
    EXPECT_LE(first->lagged, 10u);
}

TEST_F(NotificationsTest, GoOnBehindTheLastNumberAfterARestart) {
    publish(3);
    reopen();
    EXPECT_EQ(notifications_->publish("agent", "<n/>"), 4u);
    EXPECT_THAT(read(*subscribe(2)), ElementsAre("lagged 2", "4"));
}

TEST_F(NotificationsTest, NeverRepeatANumberAfterACrash) {
    publish(1500);
    const auto crashed = notifications_.release();
    reopen();
    EXPECT_GT(notifications_->publish("agent", "<n/>"), 1500u);
    delete crashed;
}

TEST_F(NotificationsTest, AllowReadersToComeAndGoWhileTheyAreWoken) {
    std::unique_ptr<Notifications::Subscription> second = subscribe(0);
    std::unique_ptr<Notifications::Subscription> third;
    const auto first = notifications_->subscribe(0, [&] {
        second.reset();
        third = subscribe(0);
    });
    EXPECT_FALSE(first->next());
    EXPECT_FALSE(second->next());
    publish(2);
    EXPECT_THAT(read(*third), ElementsAre("2"));
}

TEST_F(NotificationsTest, CarryMessagesOfTheHost) {
    Messages messages(*notifications_);
    const auto subscription = subscribe(0);
    messages.show("agent", "a < b", 0);
    EXPECT_EQ(subscription->next()->notification.xml,
              "<host_message><text>a &lt; b</text><severity>0</severity></host_message>");
}

}  // namespace
