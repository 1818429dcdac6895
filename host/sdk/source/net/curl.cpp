// nv::Curl: owns its transfers, so that they live on although nobody else keeps them, and ends
// them when it goes.
#include <nv/curl.h>

#include <unordered_map>
#include <utility>

#include "file_transfer.h"

namespace nv {

Curl::Code::Code(int value, std::string text) : value_(value), text_(std::move(text)) {}

struct Curl::State {
    State(boost::asio::io_context& loop, const Options& clientOptions)
        : context(loop), options(clientOptions) {}

    boost::asio::io_context& context;
    const Options options;
    std::unordered_map<net::FileTransfer*, std::shared_ptr<net::FileTransfer>> transfers;
};

Curl::Curl(boost::asio::io_context& context, const Options& options)
    : state_(std::make_shared<State>(context, options)) {}

Curl::~Curl() {
    const auto transfers = std::exchange(state_->transfers, {});
    for (const auto& [key, transfer] : transfers) transfer->cancel();
}

Curl::Transfer::Ptr Curl::start(const std::string& url, const Transfer::Options& options,
                                const Transfer::Callbacks& callbacks) {
    const std::weak_ptr<State> weak = state_;
    auto transfer =
        std::make_shared<net::FileTransfer>(state_->context, url, state_->options, options,
                                            callbacks, [weak](net::FileTransfer& ended) {
                                                if (const auto state = weak.lock())
                                                    state->transfers.erase(&ended);
                                            });
    state_->transfers.emplace(transfer.get(), transfer);
    transfer->begin();
    return transfer;
}

}  // namespace nv
