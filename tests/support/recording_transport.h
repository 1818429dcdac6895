#pragma once

#include <nvhost/transport.h>

#include <cstddef>
#include <string>
#include <vector>

#include "journal.h"

namespace support {

/// A transport that moves no bytes: it records what is asked of it, as "request URL" and
/// "cancel URL" in the journal, and each transfer ends when and how the test says.
///
/// The test is its loop: a test calls `answer` from outside of all calls, and every handler runs
/// inside it.
class RecordingTransport : public nv::hosting::Transport {
  public:
    /// A transfer in the order of arrival.
    struct Transfer {
        nv::hosting::TransferRequest request;
        nv::hosting::TransferHandlers handlers;
        bool cancelled = false;
        bool completed = false;
    };

    explicit RecordingTransport(Journal& journal) : journal_(journal) {}

    boost::system::error_code checkCaFile(const std::string& caFile) override;
    Id start(nv::hosting::TransferRequest request, nv::hosting::TransferHandlers handlers) override;
    void cancel(Id id) override;
    std::size_t pending() const override;
    void waitBegan() override { ++waits_; }
    void waitEnded() override { --waits_; }
    void observeIdle(std::function<void()>) override {}  // tests know when they are idle

    const std::vector<Transfer>& transfers() const { return transfers_; }
    /// URLs asked for so far, as sent, in order.
    std::vector<std::string> urls() const;
    /// The CA files that were checked.
    const std::vector<std::string>& caFiles() const { return caFiles_; }

    /// The next so many checks of a CA file answer with `error`.
    void refuseCaFiles(boost::system::error_code error, int times = 1000);
    /// Ends a transfer with an answer.
    void answer(std::size_t index, int status, const std::string& body);
    /// Ends a transfer without one. @param curlCode  libcurl's
    void fail(std::size_t index, int curlCode, const std::string& message);
    /// Ends a transfer after a part of its body.
    void breakOff(std::size_t index, const std::string& part, int curlCode,
                  const std::string& message);
    /// Answers a transfer that was cancelled, as if the answer had been under way already.
    void answerLate(std::size_t index, int status, const std::string& body);

  private:
    void deliver(Transfer& transfer, int status, const std::string& body,
                 const nv::hosting::TransferResult& result);
    Transfer& open(std::size_t index);

    Journal& journal_;
    std::vector<Transfer> transfers_;
    std::vector<std::string> caFiles_;
    boost::system::error_code caFileError_;
    int caFileRefusals_ = 0;
    std::size_t waits_ = 0;
};

}  // namespace support
