// Header lines of an answer, any bytes: what a transfer decides by them stays within its bounds.
// The first byte chooses the status, each line after it is a header.
#include <array>
#include <sstream>

#include "fuzz_input.h"
#include "net/retry_policy.h"

namespace {

constexpr std::time_t kNow = 1'795'000'000;
constexpr std::array kStatus{200, 206, 416, 429, 503};

void checkWait(const nv::net::ResponseHead& head) {
    using std::chrono::seconds;
    const auto wait = nv::net::waitAfterStatus(head, seconds(5), kNow);
    require(!wait || (*wait >= seconds(0) && *wait <= seconds(60)));
    require(!wait || head.status == 429 || head.status == 503);
}

void checkRange(const nv::net::ResponseHead& head) {
    const auto range = nv::net::parseContentRange(head.contentRange);
    if (range) {
        require(range->first <= range->last);
        require(!range->completeLength || range->last < *range->completeLength);
    }
    nv::net::PartialFile file = nv::net::describeWhole(head);
    file.delivered = range ? range->first : 1;
    if (nv::net::continues(file, head)) require(head.status == 206 && range);
    ++file.delivered;
    require(!nv::net::continues(file, head));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return -1;
    nv::net::ResponseHead head;
    head.status = kStatus[data[0] % kStatus.size()];
    std::istringstream lines(textOf(data + 1, size - 1));
    for (std::string line; std::getline(lines, line);) head.read(line);
    checkWait(head);
    checkRange(head);
    const std::string validator = nv::net::strongValidator(head);
    require(validator.empty() || !validator.starts_with("W/"));
    return 0;
}
