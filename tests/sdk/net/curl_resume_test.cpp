#include "net_test.h"

namespace nv::test {
namespace {

using ::testing::ElementsAre;

/// A file of 1000 bytes whose first answer is cut after 400.
class CurlResumeTest : public NetTest {
  protected:
    CurlResumeTest() {
        for (int i = 0; i < 1000; ++i) file += static_cast<char>('a' + i % 26);
    }

    using Answer = std::function<void(Connection&, const std::string& rest)>;

    /// What the download comes to when `second` answers the request for the rest.
    void fetch(const std::string& firstHeaders, Answer second) {
        server.on("/file", [=, this](Connection& connection, const Request& request) {
            if (!request.header("range").empty()) return second(connection, file.substr(400));
            connection.send("HTTP/1.1 200 OK\r\n" + firstHeaders + "\r\n" + file.substr(0, 400));
            connection.cut();
        });
        options.retryCount = 1;
        options.retryDelaySeconds = 0;
        client.start(server.url("/file"), options, download.callbacks());
        loop.runUntil([&] { return download.done(); });
    }

    static Answer part(int status, const std::string& headers) {
        return [=](Connection& connection, const std::string& rest) {
            connection.answer(status, rest, headers);
        };
    }

    std::string file;
    Curl client{loop.context(), {}};
    Curl::Transfer::Options options;
    Download download;
    LoopbackServer server;
};

const char* const kWhole = "Content-Length: 1000\r\nETag: \"v1\"\r\n";

TEST_F(CurlResumeTest, GoesOnAtTheByteWhereItWasCut) {
    fetch(kWhole, part(206, "Content-Range: bytes 400-999/1000\r\nETag: \"v1\"\r\n"));
    EXPECT_TRUE(download.code.ok()) << download.code.toString();
    EXPECT_EQ(download.bytes, file);
    EXPECT_EQ(download.progress, std::make_pair(std::uint64_t{1000}, std::uint64_t{1000}));
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[1].header("range"), "bytes=400-");
    EXPECT_EQ(requests[1].header("if-range"), "\"v1\"");
    EXPECT_THAT(download.statuses, ElementsAre(200, 206));
}

TEST_F(CurlResumeTest, GoesOnWithAFileOfUnknownLength) {
    server.on("/chunked", [this](Connection& connection, const Request& request) {
        if (request.header("range").empty()) {
            connection.send(
                "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nETag: \"v1\"\r\n\r\n190\r\n" +
                file.substr(0, 400) + "\r\n");
            return connection.cut();
        }
        connection.send(
            "HTTP/1.0 206 X\r\nContent-Range: bytes 400-999/1000\r\nETag: \"v1\"\r\n\r\n" +
            file.substr(400, 300));
        connection.cut();
    });
    options.retryCount = 1;
    options.retryDelaySeconds = 0;
    client.start(server.url("/chunked"), options, download.callbacks());
    loop.runUntil([&] { return download.done(); });
    EXPECT_EQ(download.code.value(), 18) << "promised 1000 bytes, sent 700, closed: not whole";
    EXPECT_EQ(download.bytes, file.substr(0, 700));
}

TEST_F(CurlResumeTest, FailsRatherThanMixTwoVersionsOrRepeatBytes) {
    struct Case {
        const char* name;
        const char* firstHeaders;
        Answer second;
        int code;
    };
    const Case cases[] = {
        {"all of it again", kWhole, part(200, "ETag: \"v1\"\r\n"), 33},
        {"changed meanwhile", kWhole, part(200, "ETag: \"v2\"\r\n"), 33},
        {"another version", kWhole,
         part(206, "Content-Range: bytes 400-999/1000\r\nETag: \"v2\"\r\n"), 33},
        {"wrong offset", kWhole, part(206, "Content-Range: bytes 399-998/1000\r\nETag: \"v1\"\r\n"),
         33},
        {"gone", kWhole, part(404, ""), 404},
        {"empty success", kWhole,
         [](Connection& connection, const std::string&) { connection.answer(200, ""); }, 33},
        {"more than promised", kWhole,
         [](Connection& connection, const std::string& rest) {
             connection.send(
                 "HTTP/1.1 206 X\r\nContent-Range: bytes 400-999/1000\r\nETag: \"v1\"\r\n\r\n" +
                 rest + "x");
             connection.cut();
         },
         33},
        {"weak validator", "Content-Length: 1000\r\nETag: W/\"v1\"\r\n", part(206, ""), 18},
        {"no validator", "Content-Length: 1000\r\n", part(206, ""), 18},
    };
    for (const Case& each : cases) {
        download = {};
        fetch(each.firstHeaders, each.second);
        EXPECT_EQ(download.code.value(), each.code)
            << each.name << ": " << download.code.toString();
        EXPECT_EQ(download.bytes, file.substr(0, download.bytes.size())) << each.name;
        EXPECT_LE(download.bytes.size(), 1000u) << each.name;
        EXPECT_EQ(download.completions, 1) << each.name;
    }
}

TEST_F(CurlResumeTest, RefusesAPartThatNobodyAskedFor) {
    server.on("/part", [](Connection& connection, const Request&) {
        connection.answer(206, "abc", "Content-Range: bytes 7-9/10\r\n");
    });
    client.start(server.url("/part"), options, download.callbacks());
    loop.runUntil([&] { return download.done(); });
    EXPECT_EQ(download.code.value(), 33);
    EXPECT_EQ(download.bytes, "");
}

}  // namespace
}  // namespace nv::test
