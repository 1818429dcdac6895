#include "net/retry_policy.h"

#include <gtest/gtest.h>

namespace nv::net {
namespace {

using std::chrono::seconds;

ResponseHead headOf(int status, std::initializer_list<const char*> lines) {
    ResponseHead head;
    head.status = status;
    for (const char* line : lines) head.read(line);
    return head;
}

TEST(RetryPolicyTest, ContinuesOnlyAtTheNextByteOfTheSameVersion) {
    const PartialFile file{100, "\"v1\"", 1000};
    struct Case {
        const char* name;
        ResponseHead head;
        bool continues;
    };
    const Case cases[] = {
        {"the rest", headOf(206, {"Content-Range: bytes 100-999/1000", "ETag: \"v1\""}), true},
        {"a part of the rest",
         headOf(206, {"content-range:bytes 100-199/1000", "etag: \"v1\"", "Content-Length: 100"}),
         true},
        {"all of it", headOf(200, {"ETag: \"v1\"", "Content-Length: 1000"}), false},
        {"another version", headOf(206, {"Content-Range: bytes 100-999/1000", "ETag: \"v2\""}),
         false},
        {"no version", headOf(206, {"Content-Range: bytes 100-999/1000"}), false},
        {"a weak one", headOf(206, {"Content-Range: bytes 100-999/1000", "ETag: W/\"v1\""}), false},
        {"too early", headOf(206, {"Content-Range: bytes 99-999/1000", "ETag: \"v1\""}), false},
        {"too late", headOf(206, {"Content-Range: bytes 101-999/1000", "ETag: \"v1\""}), false},
        {"another length", headOf(206, {"Content-Range: bytes 100-998/999", "ETag: \"v1\""}),
         false},
        {"no length", headOf(206, {"Content-Range: bytes 100-999/*", "ETag: \"v1\""}), false},
        {"a body of another length",
         headOf(206, {"Content-Range: bytes 100-999/1000", "ETag: \"v1\"", "Content-Length: 899"}),
         false},
        {"no range", headOf(206, {"ETag: \"v1\""}), false},
        {"an end behind the end",
         headOf(206, {"Content-Range: bytes 100-1000/1000", "ETag: \"v1\""}), false},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(continues(file, each.head), each.continues) << each.name;
    }
}

TEST(RetryPolicyTest, TakesOnlyStrongValidators) {
    const char* const kDate = "Date: Sun, 06 Nov 1994 08:49:37 GMT";
    const char* const kLongBefore = "Last-Modified: Sun, 06 Nov 1994 08:48:37 GMT";
    EXPECT_EQ(strongValidator(headOf(200, {"ETag:  \"v 1\" "})), "\"v 1\"");
    EXPECT_EQ(strongValidator(headOf(200, {"ETag: W/\"v1\"", kDate, kLongBefore})), "");
    EXPECT_EQ(strongValidator(headOf(200, {"ETag: v1"})), "");
    EXPECT_EQ(strongValidator(headOf(200, {kDate, kLongBefore})), "Sun, 06 Nov 1994 08:48:37 GMT");
    EXPECT_EQ(strongValidator(headOf(200, {kLongBefore})), "");
    EXPECT_EQ(strongValidator(headOf(200, {kDate, "Last-Modified: Sun, 06 Nov 1994 08:48:38 GMT"})),
              "");
}

TEST(RetryPolicyTest, WaitsAsTheServerAsksUnlessThatIsLong) {
    constexpr std::time_t kNow = 784111777;  // Sun, 06 Nov 1994 08:49:37 GMT
    struct Case {
        int status;
        const char* retryAfter;
        std::optional<seconds> wait;
    };
    const Case cases[] = {
        {503, "", seconds(5)},
        {429, "", seconds(5)},
        {503, "Retry-After: 7", seconds(7)},
        {429, "Retry-After: 0", seconds(5)},
        {503, "Retry-After: 60", seconds(60)},
        {503, "Retry-After: 61", std::nullopt},
        {503, "Retry-After: 99999999999999999999", seconds(5)},
        {503, "Retry-After: Sun, 06 Nov 1994 08:50:07 GMT", seconds(30)},
        {503, "Retry-After: Sun, 06 Nov 1994 08:00:00 GMT", seconds(5)},
        {503, "Retry-After: Sun, 06 Nov 1994 08:51:00 GMT", std::nullopt},
        {503, "Retry-After: soon", seconds(5)},
        {500, "Retry-After: 1", std::nullopt},
        {404, "", std::nullopt},
    };
    for (const Case& each : cases) {
        const auto head = headOf(each.status, {each.retryAfter});
        EXPECT_EQ(waitAfterStatus(head, seconds(5), kNow), each.wait)
            << each.status << " " << each.retryAfter;
    }
}

TEST(RetryPolicyTest, PromisesNoLengthForAChunkedBody) {
    EXPECT_EQ(describeWhole(headOf(200, {"Content-Length: 12"})).completeLength, 12u);
    EXPECT_FALSE(describeWhole(headOf(200, {"Content-Length: 12", "Transfer-Encoding: chunked"}))
                     .completeLength);
    EXPECT_FALSE(describeWhole(headOf(200, {"Transfer-Encoding: chunked", "Content-Length: 12"}))
                     .completeLength);
    EXPECT_FALSE(describeWhole(headOf(200, {"Content-Length: -1"})).completeLength);
}

}  // namespace
}  // namespace nv::net
