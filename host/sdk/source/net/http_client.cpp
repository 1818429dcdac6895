// nv::net::http's request, response and client: one query, its answer kept in memory. Enters the
// transport in begin, leaves through the owner's handler in finish.
#include <utility>

#include <nv/http.h>
#include <nvhost/transport.h>

#include "errors.h"
#include "transport_service.h"

namespace nv::net::http {

HttpRequest::HttpRequest(Url url) : url_(std::move(url)) {}

HttpResponse::HttpResponse(int status, std::string payload)
    : status_(status), payload_(std::move(payload)) {}

struct HttpClient::State : std::enable_shared_from_this<HttpClient::State> {
    State(boost::asio::io_context& loop, Handler function)
        : context(loop), handler(std::move(function)) {}

    boost::system::error_code begin();
    bool collect(const char* data, std::size_t size);
    void completed(const hosting::TransferResult& result);
    void finish(const HttpResponse& response, const boost::system::error_code& error);
    void cancel();

    boost::asio::io_context& context;
    Handler handler;
    std::string verifyFile;
    int verifyMode = 1;
    std::string url;
    std::weak_ptr<hosting::Transport> transport;
    hosting::Transport::Id id = 0;
    std::string payload;
    bool tooLarge = false;
};

HttpClient::HttpClient(boost::asio::io_context& context, Handler handler)
    : state_(std::make_shared<State>(context, std::move(handler))) {}

HttpClient::~HttpClient() {
    cancel();
}

void HttpClient::setVerifyFile(const std::string& path) {
    state_->verifyFile = path;
}

void HttpClient::setVerifyMode(int mode) {
    state_->verifyMode = mode;
}

boost::system::error_code HttpClient::asyncRequest(const HttpRequest& request) {
    State& state = *state_;
    if (state.id != 0) return errorCode(Error::kRequestUnderWay);
    if (state.verifyMode != 1) return errorCode(Error::kVerifyModeNotSupported);
    state.url = request.url().wireText();
    if (state.url.empty()) return errorCode(Error::kUrlWithoutScheme);
    state.transport = currentTransport(state.context);
    if (!state.verifyFile.empty()) {
        const auto error = state.transport.lock()->checkCaFile(state.verifyFile);
        if (error) return error;
    }
    return state.begin();
}

void HttpClient::cancel() {
    state_->cancel();
}

boost::system::error_code HttpClient::State::begin() {
    payload.clear();
    tooLarge = false;
    const hosting::TransportSettings& settings = hosting::transportSettings(context);
    hosting::TransferRequest request;
    request.url = url;
    request.caFile = verifyFile;
    request.totalTimeout = settings.queryTimeout;
    request.proxyHost = settings.proxyHost;
    request.proxyPort = settings.proxyPort;
    request.proxyUser = settings.proxyUser;
    request.proxyPassword = settings.proxyPassword;
    request.userAgent = settings.userAgent;
    hosting::TransferHandlers handlers;
    handlers.data = [weak = weak_from_this()](const char* data, std::size_t size, int) {
        const auto self = weak.lock();
        return self && self->collect(data, size);
    };
    handlers.completed = [weak = weak_from_this()](const hosting::TransferResult& result) {
        if (const auto self = weak.lock()) self->completed(result);
    };
    const auto owner = transport.lock();
    id = owner ? owner->start(std::move(request), std::move(handlers)) : 0;
    return id != 0 ? boost::system::error_code{} : errorCode(Error::kLoopStopped);
}

bool HttpClient::State::collect(const char* data, std::size_t size) {
    const std::size_t limit = hosting::transportSettings(context).maximumAnswer;
    tooLarge = size > limit || payload.size() > limit - size;
    if (!tooLarge) payload.append(data, size);
    return !tooLarge;
}

void HttpClient::State::completed(const hosting::TransferResult& result) {
    id = 0;
    if (result.timedOutBehindHandler && !begin()) return;
    if (tooLarge) {
        logFailure("query", url, "the answer is larger than this host takes");
    } else if (result.curlCode != 0) {
        logFailure("query", url, result.message);
    } else if (result.status != 200) {
        logFailure("query", url, "the answer's status is " + std::to_string(result.status));
    }
    if (tooLarge) {
        finish(HttpResponse(result.status, {}), errorCode(Error::kAnswerTooLarge));
    } else if (result.curlCode != 0) {
        finish(HttpResponse(result.status, {}), transferErrorCode(result.curlCode));
    } else {
        finish(HttpResponse(result.status, std::exchange(payload, {})), {});
    }
}

// The handler may destroy the client, and with it everything that the client keeps: what runs and
// what it is given live on the stack meanwhile. It is put back for another request only if there is
// still a client.
void HttpClient::State::finish(const HttpResponse& response,
                               const boost::system::error_code& error) {
    const std::weak_ptr<State> weak = weak_from_this();
    Handler function;
    function.swap(handler);
    if (function) function(response, error);
    if (const auto self = weak.lock()) self->handler.swap(function);
}

void HttpClient::State::cancel() {
    const auto running = std::exchange(id, 0);
    std::string().swap(payload);
    const auto owner = transport.lock();
    if (running != 0 && owner) owner->cancel(running);
}

}  // namespace nv::net::http
