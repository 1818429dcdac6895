#include <gmock/gmock.h>

#include "control/notification_cursor.h"
#include "running_server.h"

namespace overseer::control {
namespace {

using testing::HasSubstr;
using testing::Not;

NotificationPage pageOf(std::uint64_t oldest, std::uint64_t newest,
                        const std::vector<std::uint64_t>& numbers) {
    NotificationPage page{oldest, newest, {}};
    for (const std::uint64_t number : numbers) {
        page.entries.push_back({number, Instant{}, "", "<n/>", "", 0});
    }
    return page;
}

std::string follow(const std::string& query, const std::string& headers = "") {
    return "GET /notifications?follow=1" + query + " HTTP/1.1\r\nHost: h\r\n" + headers + "\r\n";
}

TEST(Cursor, EndsWithOneEntryOnceASlowSubscriberIsTooFarBehind) {
    NotificationCursor cursor(1, StreamFormat::kLines);
    cursor.take(pageOf(1, 1, {1}), false);
    EXPECT_THAT(cursor.take(pageOf(1, 10'000, {2}), false), Not(HasSubstr("lagged")));
    cursor.take(pageOf(1, 3, {3}), true);
    EXPECT_EQ(cursor.take(pageOf(1, 10'004, {4}), false), "{\"lagged\":10001,\"next\":4}\n");
    EXPECT_TRUE(cursor.ended());
}

TEST(Cursor, ReplaysAndTakesABurstOfAnyLengthWithoutLagging) {
    NotificationCursor replaying(1, StreamFormat::kLines);
    EXPECT_THAT(replaying.take(pageOf(1, 100'000, {1}), false), Not(HasSubstr("lagged")));
    EXPECT_THAT(replaying.take(pageOf(1, 100'000, {2}), false), Not(HasSubstr("lagged")));

    NotificationCursor waiting(1, StreamFormat::kLines);
    waiting.take(pageOf(1, 1, {1}), false);
    EXPECT_THAT(waiting.take(pageOf(1, 100'000, {2}), true), Not(HasSubstr("lagged")));
    EXPECT_FALSE(waiting.ended());
}

TEST(Cursor, SaysWhatIsNoLongerKeptAndGoesOn) {
    NotificationCursor cursor(5, StreamFormat::kServerSentEvents);
    const std::string text = cursor.take(pageOf(8, 8, {8}), false);
    EXPECT_THAT(text, HasSubstr("event: lagged\ndata: {\"lagged\":3,\"next\":5}\n\nid: 8\n"));
    EXPECT_FALSE(cursor.ended());
}

TEST(Stream, ReplaysFromANumberOnAndGoesOnLive) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    server.onLoop([](FakeServices& services) {
        for (int count = 0; count < 200; ++count) {
            services.publish("<old/>");
        }
    });
    RawPeer lines(root.path());
    lines.send(follow("&from=3"));
    const std::string replayed = lines.readUntil("\"number\":200");
    EXPECT_THAT(replayed, HasSubstr("Transfer-Encoding: chunked"));
    EXPECT_THAT(replayed, HasSubstr("\r\n{\"number\":3,"));

    RawPeer events(root.path());
    events.send(follow("", "Accept: text/event-stream\r\nLast-Event-ID: 199\r\n"));
    EXPECT_THAT(events.readUntil("\n\n"), HasSubstr("text/event-stream"));
    server.onLoop([](FakeServices& services) { services.publish("<fresh/>"); });
    EXPECT_THAT(lines.readUntil("<fresh/>"), HasSubstr("\"number\":201"));
    EXPECT_THAT(events.readUntil("<fresh/>"), HasSubstr("id: 201\n"));
}

TEST(Stream, GivesEverythingKeptOnRequestAndWhereTheNumbersBeganAnew) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    server.onLoop([](FakeServices& services) {
        services.newest = 6;
        services.publish("<first/>");
    });
    for (const char* from : {"&from=0", "&from=5000"}) {
        RawPeer peer(root.path());
        peer.send(follow(from));
        const std::string text = peer.readUntil("<first/>");
        EXPECT_THAT(text, HasSubstr("\"number\":7,"));
        EXPECT_THAT(text, Not(HasSubstr("lagged")));
    }
}

TEST(Stream, DropsASubscriberThatNeverReadsAndServesTheOthers) {
    const TemporaryRoot root;
    Limits limits;
    limits.connections = 2;
    limits.write = std::chrono::milliseconds(1500);
    RunningServer server(root.path(), limits);
    RawPeer deaf(root.path());
    RawPeer listening(root.path());
    deaf.send(follow("&from=1"));
    listening.send(follow("&from=1"));
    server.onLoop([](FakeServices& services) {
        const std::string large(100'000, 'x');
        for (int count = 0; count < 20; ++count) {
            services.publish("<n>" + large + "</n>");
        }
    });
    EXPECT_NE(listening.readUntil("\"number\":20,").find("\"number\":20,"), std::string::npos);
    EXPECT_THAT(exchangeOnceServed(root.path()), HasSubstr(" 200 "));
    EXPECT_EQ(deaf.readToEnd().find("\"number\":20,"), std::string::npos);
}

}  // namespace
}  // namespace overseer::control
