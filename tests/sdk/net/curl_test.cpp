#include "net_test.h"

namespace nv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class CurlTest : public NetTest {
  protected:
    CurlTest() {
        options.retryCount = 3;
        options.retryDelaySeconds = 5;
    }

    /// Starts a download and runs the loop to its end; waits between attempts pass at once.
    void fetch(Download& download, const std::string& url) {
        client.start(url, options, download.callbacks());
        loop.runUntil([&] {
            if (!clock->waits().empty()) {
                waited.push_back(clock->waits().front().count() / 1000);
                clock->finishWait();
            }
            return download.done();
        });
    }

    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    hosting::EnvironmentScope scope{[this] {
        hosting::Environment environment;
        environment.clock = clock;
        return environment;
    }()};
    Curl client{loop.context(), {}};
    Curl::Transfer::Options options;
    std::vector<long> waited;  ///< seconds between the attempts
    LoopbackServer server;
};

TEST_F(CurlTest, DeliversAFileOverTlsThatNobodyKeepsAHandleOf) {
    LoopbackServer secure(authority.issue("IP:127.0.0.1"));
    const std::string file(300'000, 'x');
    secure.on("/a.nvz", [&](Connection& connection, const Request&) {
        connection.answer(200, file, "X-Name: value\r\n");
    });
    Download download;
    fetch(download, secure.url("/a.nvz"));
    EXPECT_EQ(download.code.toString(), "No error");
    EXPECT_EQ(download.bytes, file);
    EXPECT_THAT(download.statuses, ElementsAre(200));
    EXPECT_THAT(download.headers, Contains("X-Name: value"));
    EXPECT_EQ(download.progress, std::make_pair(std::uint64_t{300'000}, std::uint64_t{300'000}));
    EXPECT_EQ(download.completions, 1);
}

TEST_F(CurlTest, DeliversNothingOfAnErrorPage) {
    for (const int status : {400, 404, 500}) {
        server.on("/error", [=](Connection& connection, const Request&) {
            connection.answer(status, "<html>sorry</html>");
        });
        Download download;
        fetch(download, server.url("/error"));
        EXPECT_EQ(download.code.value(), status);
        EXPECT_EQ(download.code.toString(),
                  "The requested URL returned error: " + std::to_string(status));
        EXPECT_EQ(download.bytes, "");
    }
    EXPECT_EQ(server.requests().size(), 3u) << "never tried again";
}

TEST_F(CurlTest, TriesAgainWhenTheServerIsBusy) {
    std::atomic<int> count = 0;
    server.on("/busy", [&](Connection& connection, const Request&) {
        switch (count++) {
            case 0:
                return connection.answer(503, "later", "Retry-After: 9\r\n");
            case 1:
                return connection.answer(429, "later");
            default:
                return connection.answer(200, "now");
        }
    });
    Download download;
    fetch(download, server.url("/busy"));
    EXPECT_TRUE(download.code.ok());
    EXPECT_EQ(download.bytes, "now");
    EXPECT_THAT(waited, ElementsAre(9, 5));
    EXPECT_THAT(download.statuses, ElementsAre(503, 429, 200));
}

TEST_F(CurlTest, GivesUpAfterSoManyRetries) {
    server.on("/busy", [](Connection& connection, const Request&) { connection.answer(503, ""); });
    server.on("/cut", [](Connection& connection, const Request&) { connection.cut(); });
    Download busy, cut;
    fetch(cut, server.url("/cut"));
    EXPECT_EQ(cut.code.value(), 52) << cut.code.toString();
    EXPECT_EQ(server.requests().size(), 4u);
    fetch(busy, server.url("/busy"));
    EXPECT_EQ(busy.code.value(), 503);
    EXPECT_EQ(server.requests().size(), 8u);
    EXPECT_EQ(transport().pending(), 0u);
}

TEST_F(CurlTest, CountsAWaitForARetryAsPending) {
    server.on("/busy", [](Connection& connection, const Request&) { connection.answer(503, ""); });
    Download download;
    const auto transfer = client.start(server.url("/busy"), options, download.callbacks());
    loop.runUntil([&] { return !clock->waits().empty(); });
    EXPECT_EQ(transport().pending(), 1u);
    transfer->cancel();
    EXPECT_EQ(transport().pending(), 0u);
    EXPECT_TRUE(clock->waits().empty());
    EXPECT_EQ(download.completions, 0);
}

TEST_F(CurlTest, LeavesAServerAloneThatAsksForMoreThanAMinute) {
    server.on("/busy", [](Connection& connection, const Request&) {
        connection.answer(503, "", "Retry-After: 3600\r\n");
    });
    Download download;
    fetch(download, server.url("/busy"));
    EXPECT_EQ(download.code.value(), 503);
    EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(CurlTest, FollowsRedirectsWithinItsSchemeOnly) {
    LoopbackServer secure(authority.issue("IP:127.0.0.1"));
    server.on("/plain",
              [](Connection& connection, const Request&) { connection.answer(200, "p"); });
    server.on("/up", [&](Connection& connection, const Request&) {
        connection.answer(302, "", "Location: " + secure.url("/there") + "\r\n");
    });
    secure.on("/here", [](Connection& connection, const Request&) {
        connection.answer(302, "moved", "Location: /there\r\n");
    });
    secure.on("/there",
              [](Connection& connection, const Request&) { connection.answer(200, "t"); });
    secure.on("/down", [&](Connection& connection, const Request&) {
        connection.answer(302, "", "Location: " + server.url("/plain") + "\r\n");
    });
    secure.on("/file", [&](Connection& connection, const Request&) {
        connection.answer(302, "", "Location: file:///etc/hostname\r\n");
    });
    secure.on("/loop", [](Connection& connection, const Request&) {
        connection.answer(302, "", "Location: /loop\r\n");
    });
    Download followed;
    fetch(followed, secure.url("/here"));
    EXPECT_EQ(followed.bytes, "t");
    EXPECT_THAT(followed.statuses, ElementsAre(200));
    for (const std::string& url :
         {secure.url("/down"), secure.url("/file"), secure.url("/loop"), server.url("/up")}) {
        Download refused;
        fetch(refused, url);
        EXPECT_FALSE(refused.code.ok()) << url;
        EXPECT_EQ(refused.bytes, "") << url;
    }
    for (const Request& request : server.requests()) EXPECT_EQ(request.target, "/up");
    EXPECT_TRUE(waited.empty()) << "a refusal of ours is not tried again";
    options.followRedirects = false;
    Download kept;
    fetch(kept, secure.url("/here"));
    EXPECT_EQ(kept.bytes, "moved");
}

TEST_F(CurlTest, AsksAsItsOptionsSay) {
    server.on("/a", [](Connection& connection, const Request&) { connection.answer(200, "a"); });
    Download head, fresh, next;
    options.headersOnly = true;
    fetch(head, server.url("/a"));
    EXPECT_TRUE(head.code.ok()) << head.code.toString();
    EXPECT_EQ(head.bytes, "");
    EXPECT_THAT(head.headers, Contains("Content-Length: 1"));
    options.headersOnly = false;
    options.freshConnection = true;
    options.closeConnection = true;
    fetch(fresh, server.url("/a"));
    EXPECT_EQ(server.connections(), 2);
    options.freshConnection = false;
    fetch(next, server.url("/a"));
    EXPECT_EQ(server.connections(), 2) << "the first connection was kept, the second closed";
    const auto requests = server.requests();
    EXPECT_EQ(requests[0].method, "HEAD");
    EXPECT_EQ(requests[1].method, "GET");
    EXPECT_EQ(requests[1].header("user-agent"), "overseer");
}

TEST_F(CurlTest, GoesThroughTheProxyThatItIsGivenAndNoOther) {
    ::setenv("http_proxy", "http://127.0.0.1:9", 1);
    ::setenv("all_proxy", "http://127.0.0.1:9", 1);
    LoopbackServer proxy;
    proxy.on("http://plain.example/a",
             [](Connection& connection, const Request&) { connection.answer(200, "via"); });
    server.on("/a", [](Connection& connection, const Request&) { connection.answer(200, "a"); });
    Download direct, through;
    fetch(direct, server.url("/a"));
    EXPECT_EQ(direct.bytes, "a");
    options.proxyHost = "127.0.0.1";
    options.proxyPort = std::stoi(proxy.url("").substr(17));
    options.proxyUser = "user";
    options.proxyPassword = "secret";
    fetch(through, "http://plain.example/a");
    EXPECT_EQ(through.bytes, "via") << through.code.toString();
    EXPECT_EQ(proxy.requests().at(0).header("proxy-authorization"), "Basic dXNlcjpzZWNyZXQ=");
    ::unsetenv("http_proxy");
    ::unsetenv("all_proxy");
}

TEST_F(CurlTest, RefusesATlsVersionThatIsTooOld) {
    LoopbackServer secure(authority.issue("IP:127.0.0.1"), false, TLS1_2_VERSION);
    secure.on("/a", [](Connection& connection, const Request&) { connection.answer(200, "a"); });
    options.retryCount = 0;
    for (const int version : {1, 2}) {
        Curl::Options clientOptions;
        clientOptions.minimumTlsVersion = version;
        clientOptions.httpVersion = 0;
        Curl other(loop.context(), clientOptions);
        Download download;
        other.start(secure.url("/a"), options, download.callbacks());
        loop.runUntil([&] { return download.done(); });
        EXPECT_EQ(download.code.ok(), version == 1) << download.code.toString();
    }
    EXPECT_FALSE(secure.http2WasOffered());
}

TEST_F(CurlTest, GivesUpAServerThatStalls) {
    options.retryCount = 0;
    options.lowSpeedBytesPerSecond = 1000;
    options.lowSpeedSeconds = 1;
    server.on("/stalled", [](Connection& connection, const Request&) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\nsome");
        connection.hold();
    });
    Download slow, limited;
    fetch(slow, server.url("/stalled"));
    EXPECT_EQ(slow.code.value(), 28) << slow.code.toString();
    EXPECT_EQ(slow.bytes, "some");
    options.lowSpeedBytesPerSecond = 0;
    options.totalTimeoutSeconds = 1;
    fetch(limited, server.url("/stalled"));
    EXPECT_EQ(limited.code.value(), 28) << limited.code.toString();
}

TEST_F(CurlTest, ReportsWhatItCannotEvenStart) {
    Download download;
    client.start("ftp://host/a", options, download.callbacks());
    EXPECT_EQ(download.completions, 0) << "never inline";
    loop.runUntil([&] { return download.done(); });
    EXPECT_EQ(download.code.value(), 3);
    EXPECT_THAT(download.code.toString(), HasSubstr("neither http nor https"));
}

TEST_F(CurlTest, EndsWhenTheReceiverSaysSo) {
    server.on("/a", [](Connection& connection, const Request&) { connection.answer(200, "abc"); });
    Download download;
    auto callbacks = download.callbacks();
    callbacks.data = [](Curl::Transfer::Ptr, const boost::asio::const_buffer&) { return true; };
    client.start(server.url("/a"), options, callbacks);
    loop.runUntil([&] { return download.done(); });
    EXPECT_EQ(download.code.value(), 23);
    EXPECT_EQ(server.requests().size(), 1u);
}

// In turn: each callback destroys the client that is calling it.
TEST_F(CurlTest, MayBeDestroyedInAnyOfItsCallbacks) {
    server.on("/a", [](Connection& connection, const Request&) { connection.answer(200, "abc"); });
    for (int where = 0; where < 5; ++where) {
        auto owned = std::make_unique<Curl>(loop.context(), Curl::Options{});
        const auto bound = std::make_shared<std::string>("alive");
        int called = 0;
        int after = 0;
        const auto at = [&, bound](int place) {
            if (!owned) ++after;
            if (place != where) return;
            owned.reset();
            called += bound->size() == 5 ? 1 : 0;
        };
        Curl::Transfer::Callbacks callbacks;
        callbacks.started = [=](Curl::Transfer::Ptr, int) { at(0); };
        callbacks.header = [=](Curl::Transfer::Ptr, const std::string&) { at(1); };
        callbacks.data = [=](Curl::Transfer::Ptr, const boost::asio::const_buffer&) {
            at(2);
            return false;
        };
        callbacks.progress = [=](Curl::Transfer::Ptr, std::uint64_t, std::uint64_t) { at(3); };
        callbacks.completed = [=](Curl::Transfer::Ptr, const Curl::Code&) { at(4); };
        owned->start(server.url("/a"), options, callbacks);
        callbacks = {};
        loop.runUntil([&] { return called == 1; });
        EXPECT_EQ(after, 0) << where;
        EXPECT_EQ(transport().pending(), 0u);
    }
}

}  // namespace
}  // namespace nv::test
