#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <vector>

#include "depot/byte_range.h"
#include "depot/request_head.h"
#include "depot/url_decoding.h"

namespace depot {
namespace {

using ::testing::Eq;

TEST(ByteRangeTest, PlansTheBytesThatAreSent) {
    struct Row {
        const char* range;
        const char* ifRange;
        int status;
        std::int64_t offset;
        std::int64_t length;
        const char* contentRange;
    };
    const std::vector<Row> table{
        {nullptr, nullptr, 200, 0, 100, nullptr},
        {"bytes=0-9", nullptr, 206, 0, 10, "bytes 0-9/100"},
        {"bytes=90-", nullptr, 206, 90, 10, "bytes 90-99/100"},
        {"bytes=90-500", nullptr, 206, 90, 10, "bytes 90-99/100"},
        {"bytes=-30", nullptr, 206, 70, 30, "bytes 70-99/100"},
        {"bytes=-500", nullptr, 206, 0, 100, "bytes 0-99/100"},
        {"bytes=50-99999999999999999999999", nullptr, 206, 50, 50, "bytes 50-99/100"},
        {"bytes=100-", nullptr, 416, 0, 0, "bytes */100"},
        {"bytes=99999999999999999999999-", nullptr, 416, 0, 0, "bytes */100"},
        {"bytes=-0", nullptr, 416, 0, 0, "bytes */100"},
        {"bytes=9-0", nullptr, 200, 0, 100, nullptr},
        {"bytes=0-1,5-6", nullptr, 200, 0, 100, nullptr},
        {"bytes=-", nullptr, 200, 0, 100, nullptr},
        {"bytes=a-b", nullptr, 200, 0, 100, nullptr},
        {"bytes=1-2x", nullptr, 200, 0, 100, nullptr},
        {"lines=1-2", nullptr, 200, 0, 100, nullptr},
        {"bytes=10-", "\"tag\"", 206, 10, 90, "bytes 10-99/100"},
        {"bytes=10-", "\"old\"", 200, 0, 100, nullptr},
        {"bytes=10-", "W/\"tag\"", 200, 0, 100, nullptr},
        {"bytes=10-", "Mon, 23 Nov 2026 10:00:00 GMT", 200, 0, 100, nullptr},
        {"bytes=100-", "\"old\"", 200, 0, 100, nullptr},
    };
    const auto optional = [](const char* text) {
        return text == nullptr ? std::nullopt : std::optional<std::string>(text);
    };
    for (const Row& row : table) {
        const RangePlan plan =
            planRange({optional(row.range), optional(row.ifRange)}, {100, "\"tag\""});
        const std::string which = std::string(row.range == nullptr ? "none" : row.range);
        EXPECT_EQ(plan.status, row.status) << which;
        EXPECT_EQ(plan.offset, row.offset) << which;
        EXPECT_EQ(plan.length, row.length) << which;
        EXPECT_EQ(plan.contentRange, optional(row.contentRange)) << which;
    }
}

TEST(UrlDecodingTest, DecodesOnceAndStrictly) {
    EXPECT_THAT(decodeUrlPart("a+b%2Bc%2520", false), Eq("a+b+c%20"));
    EXPECT_THAT(decodeUrlPart("a+b%2Bc%2520", true), Eq("a b+c%20"));
    EXPECT_THAT(decodeUrlPart("[]{}~<>\"", true), Eq("[]{}~<>\""));
    EXPECT_EQ(decodeUrlPart("%F4%90%80%80", false), std::nullopt);
    const auto parameters = parseParameters("a=1&&b&=c&a=2=3");
    ASSERT_TRUE(parameters);
    EXPECT_EQ(*parameters, (Parameters{{"a", "1"}, {"b", ""}, {"", "c"}, {"a", "2=3"}}));
}

TEST(RequestHeadTest, TakesRequestsApartAndRefusesWhatIsNone) {
    const auto head = parseRequestHead(
        "GET /a?b?c#d HTTP/1.1\r\nHost: x\r\nrange:  bytes=0-1 \r\nEmpty:\r\n\r\n");
    ASSERT_TRUE(head);
    EXPECT_EQ(head->target, "/a?b?c#d");
    EXPECT_EQ(*head->field("Range"), "bytes=0-1");
    EXPECT_EQ(*head->field("EMPTY"), "");
    EXPECT_FALSE(head->announcesBody());
    EXPECT_TRUE(parseRequestHead("GET / HTTP/1.1\r\nContent-Length: 3\r\n\r\n")->announcesBody());
    for (const char* text :
         {"", "GET\r\n\r\n", "GET /\r\n\r\n", "GET /a b HTTP/1.1\r\n\r\n",
          "GET /\t HTTP/1.1\r\n\r\n", "GET / HTTP/2\r\n\r\n", "GET x HTTP/1.1\r\n\r\n",
          " GET / HTTP/1.1\r\n\r\n", "GET / HTTP/1.1\r\nno field\r\n\r\n",
          "GET / HTTP/1.1\r\nA: b\r\n folded: c\r\n\r\n"}) {
        EXPECT_FALSE(parseRequestHead(text)) << text;
    }
}

}  // namespace
}  // namespace depot
