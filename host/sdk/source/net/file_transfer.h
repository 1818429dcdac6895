#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <nv/curl.h>
#include <nvhost/clock.h>
#include <nvhost/transport.h>

#include "retry_policy.h"

namespace nv::net {

/// A transfer of nv::Curl: one file, over as many attempts as its options allow.
///
/// As long as nothing was delivered an attempt that failed is simply made again. Afterwards only an
/// answer that goes on at exactly the next byte of the same version is taken; anything else fails
/// the transfer, so that no byte is delivered twice. The owner's callbacks live on the stack while
/// they run: each of them may cancel this transfer or destroy the client.
class FileTransfer : public Curl::Transfer, public std::enable_shared_from_this<FileTransfer> {
  public:
    /// Tells the client that the transfer has ended, before `completed` is called.
    using Ended = std::function<void(FileTransfer&)>;

    FileTransfer(boost::asio::io_context& context, std::string url, const Curl::Options& client,
                 const Options& options, const Callbacks& callbacks, Ended ended);
    ~FileTransfer() override;
    void begin();

    const std::string& url() const override { return url_; }
    void cancel() override;

  private:
    using Failure = std::shared_ptr<const Curl::Code>;

    void attempt();
    hosting::TransferRequest request() const;
    hosting::TransferHandlers handlers();
    void onStarted(int status);
    void onHeader(const std::string& line);
    bool onData(const char* data, std::size_t size, int status);
    void onProgress(std::uint64_t received, std::uint64_t total);
    void onCompleted(const hosting::TransferResult& result);

    bool deliver(const char* data, std::size_t size);
    void judgeHead();
    void onRefused(const hosting::TransferResult& result);
    void onBroken(const hosting::TransferResult& result);
    void onWhole();
    bool canGoOn() const { return file_.delivered == 0 || !file_.validator.empty(); }
    bool takeRetry();
    void retryAfter(std::chrono::seconds delay);
    void stopWaiting();
    void fail(int value, const std::string& text);
    void finish(const Curl::Code& code);
    void finishLater(const Curl::Code& code);

    boost::asio::io_context& context_;
    const std::string url_;
    const Curl::Options client_;
    const Options options_;
    std::shared_ptr<Callbacks> callbacks_;  ///< empty once nothing may be called any more
    Ended ended_;
    std::string wireUrl_;
    std::weak_ptr<hosting::Transport> transport_;
    hosting::Transport::Id id_ = 0;
    hosting::Clock::Wait wait_;
    int retriesLeft_ = 0;

    PartialFile file_;
    std::uint64_t attemptOffset_ = 0;          ///< what was delivered before this attempt
    std::optional<std::uint64_t> attemptEnd_;  ///< offset up to which this answer promises bytes
    std::uint64_t discarded_ = 0;              ///< of an error page
    ResponseHead head_;
    bool headJudged_ = false;
    Failure failure_;  ///< why this side ended the attempt
};

}  // namespace nv::net
