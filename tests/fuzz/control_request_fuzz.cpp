// Requests of the control socket, any bytes: every one is answered, with a body that is JSON where
// it says so. The first line is method and target, the rest is the body.
#include <nlohmann/json.hpp>

#include "control/flat_object.h"
#include "control/resources.h"
#include "fake_services.h"
#include "fuzz_input.h"

namespace {

using namespace overseer::control;

void checkResponse(const Response& response) {
    require(response.status >= 200 && response.status <= 503);
    require((response.status == 405) == !response.allow.empty());
    if (response.contentType == "application/json") {
        require(nlohmann::json::accept(response.body));
    }
    require(response.status < 400 || response.contentType == "application/json");
    require(!toWire(response, true).empty());
}

void checkAnswer(const Answer& answer, ControlServices& services) {
    if (const auto* response = std::get_if<Response>(&answer)) return checkResponse(*response);
    if (const auto* wait = std::get_if<Wait>(&answer)) {
        require(wait->limit.count() >= 0);
        const std::optional<Response> last = lookAt(*wait, services, true);
        require(last.has_value());
        return checkResponse(*last);
    }
    NotificationCursor cursor = std::get<Follow>(answer).cursor;
    cursor.take(services.notifications(cursor.next(), NotificationCursor::kPageSize), false);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = textOf(data, size);
    const std::size_t blank = text.find(' ');
    const std::size_t end = text.find('\n');
    if (blank == std::string::npos || end == std::string::npos || blank > end) return -1;
    Request request;
    request.method = text.substr(0, blank);
    request.body = text.substr(end + 1);
    if (!readTarget(text.substr(blank + 1, end - blank - 1), request)) return 0;
    for (const std::string& segment : request.path) {
        Request again;
        require(readTarget("/" + percentEncoded(segment), again));
        require(segment.empty() || again.path == std::vector<std::string>{segment});
    }
    FakeServices services;
    services.publish("<driver_updated/>");
    checkAnswer(answer(services, request), services);
    if (const auto members = readFlatObject(request.body); members && !members->empty()) {
        require(nlohmann::json::accept(request.body));
    }
    return 0;
}
