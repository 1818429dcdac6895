#include <fcntl.h>

#include <random>
#include <set>
#include <thread>

#include "net/loop_io.h"
#include "net_test.h"

namespace nv::test {
namespace {

using ::testing::ElementsAre;

class TransportTest : public NetTest {
  protected:
    hosting::TransferHandlers completing(std::function<void(const hosting::TransferResult&)> done) {
        hosting::TransferHandlers handlers;
        handlers.completed = std::move(done);
        return handlers;
    }
    hosting::TransferRequest requestOf(const std::string& url) {
        hosting::TransferRequest request;
        request.url = url;
        return request;
    }
    LoopbackServer server;
};

TEST_F(TransportTest, RunsSoManyPerServerAndLetsTheRestWait) {
    server.on("/a", [](Connection& connection, const Request&) {
        connection.hold();
        connection.answer(200, "a");
    });
    constexpr int kTransfers = 200;
    int completed = 0;
    for (int i = 0; i < kTransfers; ++i) {
        transport().start(requestOf(server.url("/a?" + std::to_string(i))),
                          completing([&](const hosting::TransferResult& result) {
                              EXPECT_EQ(result.status, 200);
                              ++completed;
                          }));
    }
    EXPECT_EQ(transport().pending(), 200u);
    loop.runUntil([&] { return server.requests().size() == 6; });
    server.letGo();
    loop.runUntil([&] { return completed == kTransfers; });
    EXPECT_LE(server.mostAtOnce(), 6);
    EXPECT_EQ(transport().pending(), 0u);
    const auto requests = server.requests();
    std::set<std::string> first;
    for (std::size_t i = 0; i < 6; ++i) first.insert(requests.at(i).target);
    EXPECT_THAT(first, ElementsAre("/a?0", "/a?1", "/a?2", "/a?3", "/a?4", "/a?5"));
}

TEST_F(TransportTest, GivesASlotToWhoeverHasWaitedLongest) {
    settings.transfersPerServer = 1;
    configure();
    server.on("/held", [](Connection& connection, const Request&) { connection.hold(); });
    server.on("/a", [](Connection& connection, const Request&) { connection.answer(200, "a"); });
    std::vector<std::string> order;
    const auto add = [&](const std::string& name, const std::string& path) {
        return transport().start(
            requestOf(server.url(path)),
            completing([&order, name](const auto&) { order.push_back(name); }));
    };
    const auto held = add("held", "/held");
    const auto dropped = add("dropped", "/a");
    for (const char* name : {"first", "second", "third", "fourth"}) add(name, "/a");
    loop.runUntil([&] { return !server.requests().empty(); });
    transport().cancel(dropped);
    transport().cancel(held);
    transport().cancel(4711);
    loop.runUntil([&] { return order.size() == 4; });
    EXPECT_THAT(order, ElementsAre("first", "second", "third", "fourth"));
}

TEST_F(TransportTest, LosesNoCompletionToAnotherThatThrows) {
    server.on("/a", [](Connection& connection, const Request&) { connection.answer(200, "a"); });
    int completed = 0;
    for (int i = 0; i < 5; ++i) {
        transport().start(requestOf(server.url("/a")), completing([&](const auto&) {
                              if (++completed == 2) throw std::runtime_error("not my fault");
                          }));
    }
    loop.runUntil([&] { return completed == 5; });
    EXPECT_THAT(loop.thrown(), ElementsAre("not my fault"));
    EXPECT_EQ(transport().pending(), 0u);
}

// The handshakes cannot go on while a handler sleeps, and their limit passes meanwhile; whether it
// is a handler of the network's or of somebody else on the loop.
TEST_F(TransportTest, DoesNotCountTheTimeOfAHandlerThatBlocks) {
    settings.connectTimeout = std::chrono::seconds(1);
    configure();
    server.on("/a", [](Connection& connection, const Request&) { connection.answer(200, "a"); });
    for (const bool foreign : {false, true}) {
        // Two servers: the second transfer to one would wait for the first one's handshake.
        LoopbackServer secure(authority.issue("IP:127.0.0.1"), true);
        LoopbackServer other(authority.issue("IP:127.0.0.1"), true);
        for (LoopbackServer* each : {&secure, &other}) {
            each->on("/a",
                     [](Connection& connection, const Request&) { connection.answer(200, "a"); });
        }
        const auto block = [&] {
            secure.letGo();
            other.letGo();
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        };
        Curl client(loop.context(), {});
        Download connecting, blocking;
        Query query(loop, caFile);
        client.start(secure.url("/a"), {}, connecting.callbacks());
        ASSERT_FALSE(query.request(other.url("/a")));
        loop.runUntil([&] { return secure.connections() + other.connections() == 2; });
        auto callbacks = blocking.callbacks();
        callbacks.completed = [&](Curl::Transfer::Ptr, const Curl::Code&) { block(); };
        if (foreign) {
            net::postTo(loop.context(), block);
        } else {
            client.start(server.url("/a"), {}, callbacks);
        }
        loop.runUntil([&] { return connecting.done() && query.done(); });
        EXPECT_TRUE(connecting.code.ok()) << foreign << connecting.code.toString();
        EXPECT_FALSE(query.error) << foreign << query.error.message();
    }
}

TEST_F(TransportTest, CountsALimitThatPassedWithoutABlock) {
    settings.connectTimeout = std::chrono::seconds(1);
    configure();
    LoopbackServer secure(authority.issue("IP:127.0.0.1"), true);
    Query query(loop, caFile);
    ASSERT_FALSE(query.request(secure.url("/a")));
    loop.runUntil([&] { return query.done(); });
    EXPECT_EQ(query.error.value(), 28) << query.error.message();
    EXPECT_EQ(secure.connections(), 1);
}

TEST_F(TransportTest, OpensConnectionsThatNoChildInherits) {
    server.on("/a", [](Connection& connection, const Request&) { connection.answer(200, "a"); });
    ASSERT_EQ(transport().pending(), 0u);  // libcurl's own pair of descriptors is there from now on
    const auto inheritable = [] {
        std::set<int> descriptors;
        for (int descriptor = 3; descriptor < 256; ++descriptor) {
            const int flags = ::fcntl(descriptor, F_GETFD);
            if (flags >= 0 && (flags & FD_CLOEXEC) == 0) descriptors.insert(descriptor);
        }
        return descriptors;
    };
    const auto before = inheritable();
    std::optional<std::set<int>> during;
    transport().start(requestOf(server.url("/a")),
                      completing([&](const auto&) { during = inheritable(); }));
    loop.runUntil([&] { return during.has_value(); });
    EXPECT_EQ(during, before);
}

TEST_F(TransportTest, LeavesAnIdleLoopAlone) {
    server.on("/a", [](Connection& connection, const Request&) { connection.answer(200, "a"); });
    bool done = false;
    transport().start(requestOf(server.url("/a")), completing([&](const auto&) { done = true; }));
    loop.runUntil([&] { return done; });
    loop.runReady();
    const std::size_t before = loop.handlersRun();
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1200);
    loop.runUntil([&] { return std::chrono::steady_clock::now() > end; });
    EXPECT_EQ(loop.handlersRun(), before);
}

TEST_F(TransportTest, EndsWithItsLoopWhateverIsUnderWay) {
    server.on("/held", [](Connection& connection, const Request&) { connection.hold(); });
    auto query = std::make_unique<Query>(loop, caFile);
    auto other = std::make_unique<TestLoop>();
    auto inOther = std::make_unique<Query>(*other, caFile);
    ASSERT_FALSE(inOther->request(server.url("/held")));
    other->runUntil([&] { return !server.requests().empty(); });
    inOther->client->cancel();
    ASSERT_FALSE(inOther->request(server.url("/held")));
    Download download;
    {
        Curl client(other->context(), {});
        for (int i = 0; i < 20; ++i) client.start(server.url("/held"), {}, download.callbacks());
        other->runReady();
        hosting::replaceTransport(other->context(), nullptr);
        EXPECT_EQ(hosting::transportOf(other->context()).pending(), 0u);
    }
    inOther.reset();
    other.reset();
    EXPECT_EQ(download.completions, 0);
}

// Any mixture of starting, cancelling and destroying, from outside and from callbacks.
TEST_F(TransportTest, SurvivesRandomCancellationAndDestruction) {
    LoopbackServer secure(authority.issue("IP:127.0.0.1"));
    for (LoopbackServer* each : {&server, &secure}) {
        each->on("/a", [](Connection& connection, const Request&) {
            connection.answer(200, std::string(50'000, 'a'));
        });
        each->on("/cut", [](Connection& connection, const Request&) {
            connection.send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc");
            connection.cut();
        });
        each->on("/held", [](Connection& connection, const Request&) { connection.hold(); });
    }
    std::mt19937 random(20261123);
    const auto pick = [&](std::size_t below) { return random() % below; };
    const char* const paths[] = {"/a", "/cut", "/held", "/missing"};
    for (int round = 0; round < 60; ++round) {
        auto client = std::make_unique<Curl>(loop.context(), Curl::Options{});
        std::vector<std::unique_ptr<Query>> queries;
        std::vector<Curl::Transfer::Ptr> transfers;
        std::map<Curl::Transfer*, int> completions;
        const auto disturb = [&] {
            if (!transfers.empty() && pick(3) == 0) transfers[pick(transfers.size())]->cancel();
            if (!queries.empty() && pick(5) == 0) queries[pick(queries.size())]->client->cancel();
            if (pick(20) == 0) client.reset();
        };
        Curl::Transfer::Callbacks callbacks;
        callbacks.data = [&](Curl::Transfer::Ptr, const boost::asio::const_buffer&) {
            disturb();
            return pick(10) == 0;
        };
        callbacks.completed = [&](Curl::Transfer::Ptr transfer, const Curl::Code&) {
            EXPECT_EQ(++completions[transfer.get()], 1);
            disturb();
        };
        for (int i = 0; i < 12; ++i) {
            const auto& target = pick(2) == 0 ? server : secure;
            transfers.push_back(client->start(target.url(paths[pick(4)]), {}, callbacks));
            if (pick(2) == 0) {
                queries.push_back(std::make_unique<Query>(loop, caFile));
                EXPECT_FALSE(queries.back()->request(target.url(paths[pick(4)])));
            }
        }
        for (std::size_t turns = pick(60); turns > 0 && client; --turns) loop.runReady();
        client.reset();
        queries.clear();
        EXPECT_EQ(transport().pending(), 0u);
    }
    EXPECT_TRUE(loop.thrown().empty());
}

}  // namespace
}  // namespace nv::test
