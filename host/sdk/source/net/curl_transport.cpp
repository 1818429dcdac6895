// The host's transport. Entered from start and cancel, and from CurlMulti when libcurl has worked;
// leaves through the handlers of the transfers, which run last and outside of libcurl.
#include "curl_transport.h"

#include <utility>

#include "curl_codes.h"
#include "errors.h"

namespace nv::net {

namespace {

using Time = LoopStalls::Clock;

// libcurl looks at the rate once a second: it notices a limit that late.
constexpr std::chrono::seconds kNoticedLate{2};

// Notes how long a handler kept the loop, however it is left.
class HandlerWatch {
  public:
    explicit HandlerWatch(LoopStalls& stalls) : stalls_(stalls) {}
    ~HandlerWatch() { stalls_.note(begin_, Time::now()); }
    HandlerWatch(const HandlerWatch&) = delete;
    HandlerWatch& operator=(const HandlerWatch&) = delete;

  private:
    LoopStalls& stalls_;
    const Time::time_point begin_ = Time::now();
};

}  // namespace

struct CurlTransport::Transfer {
    Id id = 0;
    hosting::TransferRequest request;
    hosting::TransferHandlers handlers;
    std::string server;
    std::unique_ptr<CurlHandle> handle;  // from the moment it has a slot
    bool inMulti = false;
    bool cancelled = false;
    bool listed = false;   // in ready_
    bool refused = false;  // the owner wants no more bytes
    std::uint64_t received = 0;
    Time::time_point slotTime;
    Time::duration stalledBefore{0};
    hosting::TransferResult result;
};

std::shared_ptr<CurlTransport> CurlTransport::create(boost::asio::io_context& context,
                                                     const hosting::TransportSettings& settings) {
    std::shared_ptr<CurlTransport> transport(new CurlTransport(context, settings));
    transport->multi_->setOwner(transport);
    return transport;
}

CurlTransport::CurlTransport(boost::asio::io_context& context,
                             const hosting::TransportSettings& settings)
    : context_(context),
      settings_(settings),
      multi_(std::make_unique<CurlMulti>(context, stalls_)) {}

CurlTransport::~CurlTransport() {
    shutDown();
}

boost::system::error_code CurlTransport::checkCaFile(const std::string& caFile) {
    return caFiles_.look(caFile).error;
}

CurlTransport::Id CurlTransport::start(hosting::TransferRequest request,
                                       hosting::TransferHandlers handlers) {
    if (closed_ || loopStopped(context_)) return 0;
    auto transfer = std::make_shared<Transfer>();
    transfer->id = ++lastId_;
    transfer->server = serverOf(request.url);
    transfer->request = std::move(request);
    transfer->handlers = std::move(handlers);
    queue_.add(transfer->server, transfer->id);
    transfers_.emplace(transfer->id, transfer);
    startWaiting();
    return transfer->id;
}

void CurlTransport::cancel(Id id) {
    const auto found = transfers_.find(id);
    if (found == transfers_.end()) return;
    // What its handlers hold is destroyed last and may call back into this object.
    const TransferPtr transfer = found->second;
    transfers_.erase(found);
    running_.erase(id);
    transfer->cancelled = true;
    release(*transfer);
    transfer->handle.reset();
    startWaiting();
    tellWhenIdle();
}

// Not while events are delivered: a handler that blocks would use up the limits of what has just
// begun to connect.
void CurlTransport::startWaiting() {
    while (!delivering_ && !closed_) {
        const auto id = queue_.takeNext(settings_.transfersPerServer);
        if (!id) return;
        const TransferPtr& transfer = transfers_.at(*id);
        running_.emplace(*id, transfer);
        begin(*transfer);
    }
}

void CurlTransport::begin(Transfer& transfer) {
    transfer.slotTime = Time::now();
    transfer.stalledBefore = stalls_.total();
    const int refusal = configure(transfer);
    multi_->keepConnections(2L * std::max(1, settings_.transfersPerServer));
    transfer.inMulti = refusal == curl_code::kOk && multi_->add(*transfer.handle);
    if (transfer.inMulti) return;
    end(transfer, refusal != curl_code::kOk ? refusal : curl_code::kFailedInit);
    workLater();
}

int CurlTransport::configure(Transfer& transfer) {
    hosting::TransferRequest& request = transfer.request;
    if (request.caFile.empty()) request.caFile = settings_.caFile;
    std::chrono::seconds caFileAge{0};
    if (!request.caFile.empty()) {
        const auto firstSeen = caFiles_.look(request.caFile).firstSeen;
        caFileAge = std::chrono::duration_cast<std::chrono::seconds>(Time::now() - firstSeen);
    }
    transfer.handle = std::make_unique<CurlHandle>(request, &transfer);
    return transfer.handle->configure(request, settings_.connectTimeout, caFileAge);
}

void CurlTransport::end(Transfer& transfer, int curlCode) {
    transfer.result = transfer.handle->result(curlCode);
    transfer.result.timedOutBehindHandler =
        curlCode == curl_code::kTimedOut && timedOutBehindHandler(transfer);
    release(transfer);
    transfer.handle->recorder().completed();
}

void CurlTransport::release(Transfer& transfer) {
    if (std::exchange(transfer.inMulti, false)) multi_->remove(*transfer.handle);
    queue_.remove(transfer.server, transfer.id);
}

bool CurlTransport::timedOutBehindHandler(const Transfer& transfer) const {
    const auto stalled = stalls_.total() - transfer.stalledBefore;
    const auto elapsed = Time::now() - transfer.slotTime;
    const auto total = transfer.request.totalTimeout;
    if (stalled == Time::duration::zero()) return false;
    if (total.count() > 0 && elapsed >= total) return elapsed - stalled < total;
    const auto limit =
        transfer.handle->connected() ? transfer.request.lowSpeedTime : settings_.connectTimeout;
    return stalls_.lastEnd() > Time::now() - limit - kNoticedLate;
}

void CurlTransport::curlWorked() {
    if (closed_) return;
    collectEnded();
    collectReady();
    deliver();
    startWaiting();
}

void CurlTransport::curlLostSocket(void* owner) {
    lostSockets_.push_back(static_cast<Transfer*>(owner)->id);
    workLater();
}

void CurlTransport::collectEnded() {
    while (const auto ended = multi_->nextEnded()) {
        end(*static_cast<Transfer*>(ended->owner), ended->curlCode);
    }
    for (const Id id : std::exchange(lostSockets_, {})) {
        const auto found = running_.find(id);
        if (found == running_.end() || !found->second->inMulti) continue;
        end(*found->second, curl_code::kReceiveError);
        found->second->result.message = "No file descriptor left to watch the connection";
    }
}

void CurlTransport::collectReady() {
    for (const auto& [id, transfer] : running_) {
        if (transfer->listed || !transfer->handle->recorder().hasEvents()) continue;
        transfer->listed = true;
        ready_.push_back(transfer);
    }
}

void CurlTransport::deliver() {
    struct Guard {
        CurlTransport& transport;
        bool thrown = true;
        ~Guard() {
            transport.delivering_ = false;
            if (thrown) transport.workLater();
        }
    } guard{*this};
    delivering_ = true;
    while (!ready_.empty()) {
        const TransferPtr transfer = ready_.front();
        deliverTo(*transfer);
        transfer->listed = false;
        if (!ready_.empty()) ready_.pop_front();  // empty after shutDown
    }
    guard.thrown = false;
}

void CurlTransport::deliverTo(Transfer& transfer) {
    while (!transfer.cancelled && transfer.handle->recorder().hasEvents()) {
        const TransferEvent event = transfer.handle->recorder().takeEvent();
        const HandlerWatch watch(stalls_);
        call(transfer, event);
    }
}

void CurlTransport::call(Transfer& transfer, const TransferEvent& event) {
    const hosting::TransferHandlers& handlers = transfer.handlers;
    switch (event.kind) {
        case TransferEvent::Kind::kStarted:
            if (handlers.started && !transfer.refused) handlers.started(event.status);
            return;
        case TransferEvent::Kind::kHeader:
            if (handlers.header && !transfer.refused) handlers.header(event.text);
            return;
        case TransferEvent::Kind::kData:
            if (!transfer.refused) callData(transfer, event);
            return;
        case TransferEvent::Kind::kCompleted:
            callCompleted(transfer);
            return;
    }
}

void CurlTransport::callData(Transfer& transfer, const TransferEvent& event) {
    const hosting::TransferHandlers& handlers = transfer.handlers;
    const std::uint64_t announced = transfer.handle->announcedLength();
    transfer.received += event.text.size();
    const bool wanted =
        !handlers.data || handlers.data(event.text.data(), event.text.size(), event.status);
    if (transfer.cancelled) return;
    if (wanted) {
        if (handlers.progress) handlers.progress(transfer.received, announced);
        return;
    }
    transfer.refused = true;
    if (transfer.inMulti) {
        end(transfer, curl_code::kWriteError);
    } else {
        transfer.result.curlCode = curl_code::kWriteError;
        transfer.result.message = curlText(curl_code::kWriteError);
    }
}

void CurlTransport::callCompleted(Transfer& transfer) {
    transfers_.erase(transfer.id);
    running_.erase(transfer.id);
    transfer.cancelled = true;
    tellWhenIdle();
    if (transfer.handlers.completed) transfer.handlers.completed(transfer.result);
}

void CurlTransport::workLater() {
    postTo(context_, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->curlWorked();
    });
}

// Later: a handler that runs now may start the next transfer, and then the observer looks in vain.
void CurlTransport::tellWhenIdle() {
    if (pending() != 0 || closed_ || !idle_) return;
    postTo(context_, [weak = weak_from_this()] {
        if (const auto self = weak.lock(); self && self->idle_) self->idle_();
    });
}

void CurlTransport::shutDown() {
    closed_ = true;
    const auto transfers = std::exchange(transfers_, {});
    const auto running = std::exchange(running_, {});
    const auto ready = std::exchange(ready_, {});
    for (const auto& [id, transfer] : transfers) {
        transfer->cancelled = true;
        release(*transfer);
        transfer->handle.reset();
    }
    multi_.reset();
}

}  // namespace nv::net
