// One download of nv::Curl. The transport calls the on... functions; what is tried again is
// decided here with the rules of retry_policy.
#include "file_transfer.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <utility>

#include <nv/http.h>
#include <nvhost/environment.h>

#include "curl_codes.h"
#include "errors.h"
#include "loop_io.h"
#include "transport_service.h"

namespace nv::net {

namespace {

// An error page is read to its end so that the connection can be used again, but not for ever.
constexpr std::uint64_t kLongestErrorPage = 1u << 20;

Curl::Code statusCode(int status) {
    return {status, "The requested URL returned error: " + std::to_string(status)};
}

}  // namespace

FileTransfer::FileTransfer(boost::asio::io_context& context, std::string url,
                           const Curl::Options& client, const Options& options,
                           const Callbacks& callbacks, Ended ended)
    : context_(context),
      url_(std::move(url)),
      client_(client),
      options_(options),
      callbacks_(std::make_shared<Callbacks>(callbacks)),
      ended_(std::move(ended)),
      transport_(currentTransport(context)),
      retriesLeft_(std::max(0, options.retryCount)) {}

FileTransfer::~FileTransfer() {
    cancel();
}

void FileTransfer::begin() {
    boost::system::error_code error;
    wireUrl_ = http::Url::createUrl(url_, error).wireText();
    if (error) {
        finishLater({curl_code::kUrlMalformed, error.message()});
    } else {
        attempt();
    }
}

void FileTransfer::cancel() {
    const auto callbacks = std::exchange(callbacks_, nullptr);
    if (!callbacks) return;
    stopWaiting();
    const auto transport = transport_.lock();
    if (transport && id_ != 0) transport->cancel(std::exchange(id_, 0));
    if (const auto ended = std::exchange(ended_, nullptr)) ended(*this);
}

void FileTransfer::attempt() {
    head_ = {};
    headJudged_ = false;
    failure_.reset();
    discarded_ = 0;
    attemptOffset_ = file_.delivered;
    const auto transport = transport_.lock();
    id_ = transport ? transport->start(request(), handlers()) : 0;
    if (id_ == 0) {
        finishLater({curl_code::kFailedInit, errorCode(Error::kLoopStopped).message()});
    }
}

hosting::TransferRequest FileTransfer::request() const {
    const hosting::TransportSettings& settings = hosting::transportSettings(context_);
    const auto orSetting = [](std::int32_t own, auto setting) {
        return own < 0 ? setting : decltype(setting)(own);
    };
    hosting::TransferRequest request;
    request.url = wireUrl_;
    request.headersOnly = options_.headersOnly;
    request.followRedirects = options_.followRedirects;
    request.maximumRedirects = options_.maximumRedirects;
    request.freshConnection = options_.freshConnection;
    request.closeConnection = options_.closeConnection;
    request.http2 = client_.httpVersion != 0;
    request.waitForMultiplexing = client_.waitForMultiplexing;
    request.minimumTlsVersion = client_.minimumTlsVersion;
    request.totalTimeout = std::chrono::seconds(std::max(0, options_.totalTimeoutSeconds));
    request.lowSpeedBytesPerSecond =
        orSetting(options_.lowSpeedBytesPerSecond, settings.lowSpeedBytesPerSecond);
    request.lowSpeedTime = orSetting(options_.lowSpeedSeconds, settings.lowSpeedTime);
    const bool ownProxy = !options_.proxyHost.empty();
    request.proxyHost = ownProxy ? options_.proxyHost : settings.proxyHost;
    request.proxyPort = ownProxy ? options_.proxyPort : settings.proxyPort;
    request.proxyUser = ownProxy ? options_.proxyUser : settings.proxyUser;
    request.proxyPassword = ownProxy ? options_.proxyPassword : settings.proxyPassword;
    request.userAgent = client_.userAgent.empty() ? settings.userAgent : client_.userAgent;
    request.resumeFrom = file_.delivered;
    if (file_.delivered > 0) request.ifRange = file_.validator;
    return request;
}

hosting::TransferHandlers FileTransfer::handlers() {
    const std::weak_ptr<FileTransfer> weak = weak_from_this();
    hosting::TransferHandlers handlers;
    handlers.started = [weak](int status) {
        if (const auto self = weak.lock()) self->onStarted(status);
    };
    handlers.header = [weak](const std::string& line) {
        if (const auto self = weak.lock()) self->onHeader(line);
    };
    handlers.data = [weak](const char* data, std::size_t size, int status) {
        const auto self = weak.lock();
        return self && self->onData(data, size, status);
    };
    handlers.progress = [weak](std::uint64_t received, std::uint64_t total) {
        if (const auto self = weak.lock()) self->onProgress(received, total);
    };
    handlers.completed = [weak](const hosting::TransferResult& result) {
        if (const auto self = weak.lock()) self->onCompleted(result);
    };
    return handlers;
}

void FileTransfer::onStarted(int status) {
    head_.status = status;
    const auto callbacks = callbacks_;
    if (callbacks && callbacks->started) callbacks->started(shared_from_this(), status);
}

void FileTransfer::onHeader(const std::string& line) {
    head_.read(line);
    const auto callbacks = callbacks_;
    if (callbacks && callbacks->header) callbacks->header(shared_from_this(), line);
}

bool FileTransfer::onData(const char* data, std::size_t size, int status) {
    if (status >= 400) return (discarded_ += size) <= kLongestErrorPage;
    judgeHead();
    return !failure_ && deliver(data, size);
}

bool FileTransfer::deliver(const char* data, std::size_t size) {
    if (attemptEnd_ && size > *attemptEnd_ - file_.delivered) {
        fail(curl_code::kRangeError, "More bytes came than were promised");
        return false;
    }
    if (size > hosting::transportSettings(context_).maximumDownload - file_.delivered) {
        fail(curl_code::kFileTooLarge, "The file is larger than this host takes");
        return false;
    }
    file_.delivered += size;
    const auto callbacks = callbacks_;
    if (!callbacks || !callbacks->data) return true;
    const bool stop = callbacks->data(shared_from_this(), boost::asio::const_buffer(data, size));
    if (stop) fail(curl_code::kWriteError, "The receiver ended the transfer");
    return !stop;
}

// Once per answer that is not an error: does it begin the file, or go on where the file ends?
void FileTransfer::judgeHead() {
    if (std::exchange(headJudged_, true)) return;
    if (attemptOffset_ == 0) {
        file_ = describeWhole(head_);
        attemptEnd_ = file_.completeLength;
        if (head_.status == 206) fail(curl_code::kRangeError, "A part came of a file asked whole");
    } else if (continues(file_, head_)) {
        const ContentRange range = *parseContentRange(head_.contentRange);
        file_.completeLength = range.completeLength;
        attemptEnd_ = range.last + 1;
    } else {
        fail(curl_code::kRangeError,
             "The server did not go on after " + std::to_string(file_.delivered) + " bytes");
    }
}

void FileTransfer::onProgress(std::uint64_t received, std::uint64_t total) {
    const auto callbacks = callbacks_;
    if (!callbacks || !callbacks->progress || head_.status >= 400) return;
    callbacks->progress(shared_from_this(), attemptOffset_ + received,
                        file_.completeLength.value_or(total == 0 ? 0 : attemptOffset_ + total));
}

void FileTransfer::onCompleted(const hosting::TransferResult& result) {
    id_ = 0;
    if (failure_) {
        finish(*failure_);
    } else if (result.curlCode == curl_code::kOk && result.status < 400) {
        onWhole();
    } else if (result.status >= 400) {
        onRefused(result);
    } else {
        onBroken(result);
    }
}

void FileTransfer::onRefused(const hosting::TransferResult& result) {
    head_.status = result.status;
    const auto now = hosting::environment().clock->wallTime().tv_sec;
    const std::chrono::seconds usual(std::max(0, options_.retryDelaySeconds));
    const auto wait = waitAfterStatus(head_, usual, now);
    if (wait && takeRetry()) {
        retryAfter(*wait);
    } else {
        finish(statusCode(result.status));
    }
}

void FileTransfer::onBroken(const hosting::TransferResult& result) {
    if (canGoOn() && result.timedOutBehindHandler) {
        attempt();
    } else if (canGoOn() && isTransportFailure(result.curlCode) && takeRetry()) {
        retryAfter(std::chrono::seconds(std::max(0, options_.retryDelaySeconds)));
    } else {
        finish({result.curlCode, result.message});
    }
}

// libcurl is content; whether all of the file is there is another question.
void FileTransfer::onWhole() {
    if (options_.headersOnly) return finish({});
    judgeHead();
    if (failure_) return finish(*failure_);
    if (file_.completeLength && file_.delivered < *file_.completeLength) {
        hosting::TransferResult cut;
        cut.curlCode = curl_code::kPartialFile;
        cut.message = curlText(curl_code::kPartialFile);
        return onBroken(cut);
    }
    finish({});
}

bool FileTransfer::takeRetry() {
    if (retriesLeft_ == 0) return false;
    --retriesLeft_;
    return true;
}

void FileTransfer::retryAfter(std::chrono::seconds delay) {
    if (const auto transport = transport_.lock()) transport->waitBegan();
    wait_ = hosting::environment().clock->after(context_, delay, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self || !self->wait_) return;
        self->stopWaiting();
        self->attempt();
    });
}

void FileTransfer::stopWaiting() {
    if (!std::exchange(wait_, nullptr)) return;
    if (const auto transport = transport_.lock()) transport->waitEnded();
}

void FileTransfer::fail(int value, const std::string& text) {
    failure_ = std::make_shared<const Curl::Code>(value, text);
}

void FileTransfer::finish(const Curl::Code& code) {
    // A copy: what `code` refers to may go with this object.
    const Curl::Code kept = code;  // NOLINT(performance-unnecessary-copy-initialization)
    const auto self = shared_from_this();
    const auto callbacks = std::exchange(callbacks_, nullptr);
    if (const auto ended = std::exchange(ended_, nullptr)) ended(*this);
    if (!callbacks) return;
    if (!kept.ok()) {
        logFailure("download", url_, kept.toString());
        const auto& told = hosting::transportSettings(context_).downloadFailed;
        if (told) told(url_, kept.toString());
    }
    if (callbacks->completed) callbacks->completed(self, kept);
}

void FileTransfer::finishLater(const Curl::Code& code) {
    postTo(context_, [weak = weak_from_this(), code] {
        if (const auto self = weak.lock()) self->finish(code);
    });
}

}  // namespace nv::net
