#include "net/response_recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nv::net {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> eventsOf(ResponseRecorder& recorder) {
    std::vector<std::string> texts;
    while (recorder.hasEvents()) {
        const TransferEvent event = recorder.takeEvent();
        const bool started = event.kind == TransferEvent::Kind::kStarted;
        texts.push_back(started ? std::to_string(event.status) : event.text);
    }
    return texts;
}

std::vector<std::string> record(bool followsRedirects, std::initializer_list<const char*> lines) {
    ResponseRecorder recorder(followsRedirects);
    for (const char* line : lines) recorder.headerLine(line);
    recorder.body("a", 1);
    recorder.body("b", 1);
    recorder.headerLine("X-Trailer: late\r\n");
    return eventsOf(recorder);
}

TEST(ResponseRecorderTest, TellsOfTheResponseThatCountsOnly) {
    EXPECT_THAT(record(true, {"HTTP/1.1 200 OK\r\n", "A: b\r\n", "\r\n"}),
                ElementsAre("200", "A: b", "ab"));
    EXPECT_THAT(record(true, {"HTTP/1.1 103 \r\n", "Link: x\r\n", "\r\n", "HTTP/2 204\n", "\n"}),
                ElementsAre("204", "ab"));
    EXPECT_THAT(record(true, {"HTTP/1.1 302 Found\r\n", "LOCATION: /x\r\n", "\r\n",
                              "HTTP/1.1 404 No\r\n", "A: b\r\n", "\r\n"}),
                ElementsAre("404", "A: b", "ab"));
    EXPECT_THAT(record(false, {"HTTP/1.1 302 Found\r\n", "Location: /x\r\n", "\r\n"}),
                ElementsAre("302", "Location: /x", "ab"));
    EXPECT_THAT(record(true, {"HTTP/1.1 302 Found\r\n", "Location: /x\r\n", "\r\n"}),
                ElementsAre());
}

TEST(ResponseRecorderTest, KeepsNoMoreThanSoManyHeaderBytes) {
    ResponseRecorder recorder(false);
    recorder.headerLine("HTTP/1.1 200 OK\r\n");
    const std::string line = "A: " + std::string(60'000, 'x');
    for (int i = 0; i < 100; ++i) recorder.headerLine(line);
    recorder.headerLine("\r\n");
    EXPECT_LE(eventsOf(recorder).size(), 6u);
}

}  // namespace
}  // namespace nv::net
