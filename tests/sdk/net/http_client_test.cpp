#include "net_test.h"

namespace nv::test {
namespace {

using ::testing::HasSubstr;

class HttpClientTest : public NetTest {
  protected:
    LoopbackServer server{authority.issue("IP:127.0.0.1")};
};

TEST_F(HttpClientTest, FetchesOverVerifiedTlsOnOneConnection) {
    server.on("/select", [](Connection& connection, const Request& request) {
        connection.answer(200, request.target);
    });
    for (int i = 0; i < 2; ++i) {
        Query query(loop, caFile);
        ASSERT_FALSE(query.request(server.url("/select?q=\"a b\"")));
        EXPECT_EQ(query.completions, 0);
        loop.runUntil([&] { return query.done(); });
        EXPECT_FALSE(query.error) << query.error.message();
        EXPECT_EQ(query.response.status(), 200);
        EXPECT_EQ(query.response.payload(), "/select?q=%22a%20b%22");
    }
    EXPECT_EQ(server.connections(), 1);
    EXPECT_TRUE(server.http2WasOffered());
    EXPECT_EQ(transport().pending(), 0u);
}

TEST_F(HttpClientTest, AnswersOnceToEachOfSeveralRequestsInARow) {
    server.on("/a", [](Connection& connection, const Request&) { connection.answer(200, "a"); });
    Query query(loop, caFile);
    ASSERT_FALSE(query.request(server.url("/a")));
    EXPECT_TRUE(query.request(server.url("/a"))) << "one at a time";
    loop.runUntil([&] { return query.completions == 1; });
    ASSERT_FALSE(query.request(server.url("/missing")));
    loop.runUntil([&] { return query.completions == 2; });
    EXPECT_FALSE(query.error);
    EXPECT_EQ(query.response.status(), 404);
    EXPECT_EQ(query.response.payload(), "no such path");
}

TEST_F(HttpClientTest, TrustsNobodyButTheGivenFile) {
    const TestAuthority stranger("Stranger");
    LoopbackServer untrusted(stranger.issue("IP:127.0.0.1"));
    LoopbackServer misnamed(authority.issue("DNS:other.example"));
    for (LoopbackServer* each : {&untrusted, &misnamed}) {
        Query query(loop, caFile);
        ASSERT_FALSE(query.request(each->url("/")));
        loop.runUntil([&] { return query.done(); });
        EXPECT_EQ(query.error.value(), 60) << query.error.message();
        EXPECT_EQ(query.response.status(), 0);
        EXPECT_TRUE(each->requests().empty());
    }
}

TEST_F(HttpClientTest, NoticesThatTheAuthoritiesHaveChanged) {
    Query before(loop, caFile);
    before.client->setVerifyFile(caFile);
    ASSERT_FALSE(before.request(server.url("/")));
    loop.runUntil([&] { return before.done(); });
    EXPECT_FALSE(before.error);

    const TestAuthority next("Next authority");
    LoopbackServer renewed(next.issue("IP:127.0.0.1"));
    writeFile(caFile, next.pem() + authority.pem());
    Query after(loop, caFile);
    ASSERT_FALSE(after.request(renewed.url("/")));
    loop.runUntil([&] { return after.done(); });
    EXPECT_FALSE(after.error) << after.error.message();
}

TEST_F(HttpClientTest, AnswersAtOnceWhereNothingCanBeVerified) {
    const auto with = [&](const std::string& content) {
        const std::string path = folder.path("other.crt");
        writeFile(path, content);
        return path;
    };
    std::string damaged = authority.pem();
    damaged.replace(60, 4, "????");
    for (const std::string& path : {folder.path("missing.crt"), folder.path(""), with(""),
                                    with("text"), with(damaged), with(authority.pem() + damaged)}) {
        Query query(loop, path);
        EXPECT_TRUE(query.request(server.url("/"))) << path;
    }
    Query unverified(loop, caFile);
    unverified.client->setVerifyMode(0);
    EXPECT_TRUE(unverified.request(server.url("/")));
    loop.stop();
    Query late(loop, caFile);
    EXPECT_TRUE(late.request(server.url("/")));
    EXPECT_EQ(transport().pending(), 0u);
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(HttpClientTest, FollowsNoRedirect) {
    server.on("/here", [](Connection& connection, const Request&) {
        connection.answer(302, "", "Location: /there\r\n");
    });
    Query query(loop, caFile);
    ASSERT_FALSE(query.request(server.url("/here")));
    loop.runUntil([&] { return query.done(); });
    EXPECT_EQ(query.response.status(), 302);
    EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(HttpClientTest, RefusesAnAnswerThatIsTooLargeOrCut) {
    settings.maximumAnswer = 100'000;
    configure();
    server.on("/endless", [](Connection& connection, const Request&) {
        connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        for (int i = 0; i < 100; ++i)
            connection.send("2710\r\n" + std::string(10'000, 'x') + "\r\n");
        connection.hold();
    });
    server.on("/cut", [](Connection& connection, const Request&) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n12345");
        connection.cut();
    });
    for (const char* path : {"/endless", "/cut"}) {
        Query query(loop, caFile);
        ASSERT_FALSE(query.request(server.url(path)));
        loop.runUntil([&] { return query.done(); });
        EXPECT_TRUE(query.error) << path;
        EXPECT_EQ(query.response.payload(), "") << path;
        EXPECT_EQ(query.completions, 1);
    }
}

TEST_F(HttpClientTest, GivesUpASilentServerWithoutASecondTry) {
    settings.queryTimeout = std::chrono::seconds(1);
    configure();
    server.on("/silent", [](Connection& connection, const Request&) { connection.hold(); });
    Query query(loop, caFile);
    ASSERT_FALSE(query.request(server.url("/silent")));
    loop.runUntil([&] { return query.done(); });
    EXPECT_THAT(query.error.message(), HasSubstr("Timeout"));
    EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(HttpClientTest, CallsNobodyAfterCancelOrDestruction) {
    server.on("/held", [](Connection& connection, const Request&) {
        connection.hold();
        connection.answer(200, "late");
    });
    Query cancelled(loop, caFile), destroyed(loop, caFile), queued(loop, caFile);
    for (Query* each : {&cancelled, &destroyed}) {
        ASSERT_FALSE(each->request(server.url("/held")));
    }
    loop.runUntil([&] { return server.requests().size() == 2; });
    ASSERT_FALSE(queued.request(server.url("/held")));
    queued.client->cancel();
    cancelled.client->cancel();
    destroyed.client.reset();
    server.letGo();
    EXPECT_EQ(transport().pending(), 0u);
    Query last(loop, caFile);
    ASSERT_FALSE(last.request(server.url("/held")));
    loop.runUntil([&] { return last.done(); });
    for (const Query* each : {&cancelled, &destroyed, &queued}) EXPECT_EQ(each->completions, 0);
}

TEST_F(HttpClientTest, MayBeDestroyedInItsOwnHandler) {
    std::shared_ptr<net::http::HttpClient> client;
    std::string seen;
    const auto bound = std::make_shared<std::string>("bound");
    client = std::make_shared<net::http::HttpClient>(
        loop.context(),
        [&, bound](const net::http::HttpResponse& response, const boost::system::error_code&) {
            client.reset();
            seen = *bound + " " + response.payload();
        });
    client->setVerifyFile(caFile);
    boost::system::error_code error;
    server.on("/a", [](Connection& connection, const Request&) { connection.answer(200, "a"); });
    const auto url = net::http::Url::createUrl(server.url("/a"), error);
    ASSERT_FALSE(client->asyncRequest(net::http::HttpRequest(url)));
    loop.runUntil([&] { return !seen.empty(); });
    EXPECT_EQ(seen, "bound a");
}

}  // namespace
}  // namespace nv::test
