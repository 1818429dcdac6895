#pragma once

#include <deque>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include <nvhost/transport.h>

#include "ca_file.h"
#include "curl_multi.h"
#include "loop_stalls.h"
#include "transfer_queue.h"

namespace nv::net {

/// The transport of the host: queued transfers, those that libcurl runs, and the delivery of what
/// happened to them.
///
/// Handlers run outside of libcurl, so they may start and cancel transfers and destroy anything,
/// this transport included. A handler that throws loses only its own event: the others are
/// delivered from the loop's next turn on.
class CurlTransport : public hosting::Transport,
                      public CurlMulti::Owner,
                      public std::enable_shared_from_this<CurlTransport> {
  public:
    /// `settings` are looked at when a transfer gets its slot; both must outlive the transport.
    static std::shared_ptr<CurlTransport> create(boost::asio::io_context& context,
                                                 const hosting::TransportSettings& settings);
    ~CurlTransport() override;

    boost::system::error_code checkCaFile(const std::string& caFile) override;
    Id start(hosting::TransferRequest request, hosting::TransferHandlers handlers) override;
    void cancel(Id id) override;
    std::size_t pending() const override { return transfers_.size() + waits_; }
    void waitBegan() override { ++waits_; }
    void waitEnded() override {
        --waits_;
        tellWhenIdle();
    }
    void observeIdle(std::function<void()> observer) override { idle_ = std::move(observer); }

    void curlWorked() override;
    void curlLostSocket(void* owner) override;

    /// Ends everything without a word; start answers 0 from now on.
    void shutDown();

  private:
    struct Transfer;
    using TransferPtr = std::shared_ptr<Transfer>;

    CurlTransport(boost::asio::io_context& context, const hosting::TransportSettings& settings);
    void startWaiting();
    void begin(Transfer& transfer);
    int configure(Transfer& transfer);
    void end(Transfer& transfer, int curlCode);
    void release(Transfer& transfer);
    bool timedOutBehindHandler(const Transfer& transfer) const;
    void collectEnded();
    void collectReady();
    void deliver();
    void deliverTo(Transfer& transfer);
    void call(Transfer& transfer, const TransferEvent& event);
    void callData(Transfer& transfer, const TransferEvent& event);
    void callCompleted(Transfer& transfer);
    void workLater();
    void tellWhenIdle();

    boost::asio::io_context& context_;
    const hosting::TransportSettings& settings_;
    LoopStalls stalls_;
    CaFiles caFiles_;
    TransferQueue queue_;
    std::unordered_map<Id, TransferPtr> transfers_;
    std::map<Id, TransferPtr> running_;  ///< those with a slot, or with an end to deliver
    std::deque<TransferPtr> ready_;      ///< those with events to deliver
    std::vector<Id> lostSockets_;
    std::unique_ptr<CurlMulti> multi_;
    Id lastId_ = 0;
    std::size_t waits_ = 0;
    bool delivering_ = false;
    bool closed_ = false;
    std::function<void()> idle_;
};

}  // namespace nv::net
