#include "recording_transport.h"

#include <stdexcept>
#include <utility>

namespace support {

boost::system::error_code RecordingTransport::checkCaFile(const std::string& caFile) {
    caFiles_.push_back(caFile);
    if (caFileRefusals_ == 0) return {};
    --caFileRefusals_;
    return caFileError_;
}

nv::hosting::Transport::Id RecordingTransport::start(nv::hosting::TransferRequest request,
                                                     nv::hosting::TransferHandlers handlers) {
    journal_.add("request " + request.url);
    transfers_.push_back({std::move(request), std::move(handlers)});
    return transfers_.size();
}

void RecordingTransport::cancel(Id id) {
    if (id == 0 || id > transfers_.size()) return;
    Transfer& transfer = transfers_[id - 1];
    if (transfer.completed || transfer.cancelled) return;
    transfer.cancelled = true;
    journal_.add("cancel " + transfer.request.url);
}

std::size_t RecordingTransport::pending() const {
    std::size_t count = waits_;
    for (const Transfer& transfer : transfers_) {
        if (!transfer.completed && !transfer.cancelled) ++count;
    }
    return count;
}

std::vector<std::string> RecordingTransport::urls() const {
    std::vector<std::string> all;
    for (const Transfer& transfer : transfers_) all.push_back(transfer.request.url);
    return all;
}

void RecordingTransport::refuseCaFiles(boost::system::error_code error, int times) {
    caFileError_ = error;
    caFileRefusals_ = times;
}

RecordingTransport::Transfer& RecordingTransport::open(std::size_t index) {
    Transfer& transfer = transfers_.at(index);
    if (transfer.cancelled || transfer.completed) throw std::logic_error("the transfer has ended");
    return transfer;
}

void RecordingTransport::answer(std::size_t index, int status, const std::string& body) {
    nv::hosting::TransferResult result;
    result.status = status;
    deliver(open(index), status, body, result);
}

void RecordingTransport::fail(std::size_t index, int curlCode, const std::string& message) {
    breakOff(index, "", curlCode, message);
}

void RecordingTransport::breakOff(std::size_t index, const std::string& part, int curlCode,
                                  const std::string& message) {
    nv::hosting::TransferResult result;
    result.curlCode = curlCode;
    result.status = part.empty() ? 0 : 200;
    result.message = message;
    deliver(open(index), result.status, part, result);
}

void RecordingTransport::answerLate(std::size_t index, int status, const std::string& body) {
    Transfer& transfer = transfers_.at(index);
    if (!transfer.cancelled) throw std::logic_error("the transfer was not cancelled");
    nv::hosting::TransferResult result;
    result.status = status;
    deliver(transfer, status, body, result);
}

void RecordingTransport::deliver(Transfer& transfer, int status, const std::string& body,
                                 const nv::hosting::TransferResult& result) {
    transfer.completed = true;
    // Handlers may start transfers, which moves the others, and may destroy their owner.
    const nv::hosting::TransferHandlers handlers = std::exchange(transfer.handlers, {});
    if (status != 0 && handlers.started) handlers.started(status);
    if (!body.empty() && handlers.data) handlers.data(body.data(), body.size(), status);
    if (handlers.completed) handlers.completed(result);
}

}  // namespace support
