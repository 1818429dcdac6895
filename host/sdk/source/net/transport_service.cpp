// Binds a transport and its settings to the lifetime of a loop.
#include "transport_service.h"

#include <boost/asio/io_context.hpp>
#include <utility>

#include "curl_transport.h"
#include "loop_io.h"

namespace nv::net {

namespace {

class TransportService : public boost::asio::execution_context::service {
  public:
    using key_type = TransportService;
    static boost::asio::execution_context::id id;

    explicit TransportService(boost::asio::io_context& context)
        : service(context), context_(context) {
        // Services end in reverse order of their making: these must outlive this one.
        prepareLoop(context);
    }

    void configure(hosting::TransportSettings settings) { settings_ = std::move(settings); }
    const hosting::TransportSettings& settings() const { return settings_; }

    const std::shared_ptr<hosting::Transport>& transport() {
        if (!transport_) {
            curl_ = CurlTransport::create(context_, settings_);
            transport_ = curl_;
        }
        return transport_;
    }

    void replace(std::shared_ptr<hosting::Transport> transport) {
        if (const auto curl = std::exchange(curl_, nullptr)) curl->shutDown();
        transport_ = std::move(transport);
    }

  private:
    void shutdown() override { replace(nullptr); }

    boost::asio::io_context& context_;
    hosting::TransportSettings settings_;
    std::shared_ptr<CurlTransport> curl_;  ///< the same as transport_, while that is our own
    std::shared_ptr<hosting::Transport> transport_;
};

boost::asio::execution_context::id TransportService::id;

TransportService& serviceOf(boost::asio::io_context& context) {
    return boost::asio::use_service<TransportService>(context);
}

}  // namespace

std::weak_ptr<hosting::Transport> currentTransport(boost::asio::io_context& context) {
    return serviceOf(context).transport();
}

}  // namespace nv::net

namespace nv::hosting {

void configureTransport(boost::asio::io_context& context, TransportSettings settings) {
    net::serviceOf(context).configure(std::move(settings));
}

const TransportSettings& transportSettings(boost::asio::io_context& context) {
    return net::serviceOf(context).settings();
}

Transport& transportOf(boost::asio::io_context& context) {
    return *net::serviceOf(context).transport();
}

void replaceTransport(boost::asio::io_context& context, std::shared_ptr<Transport> transport) {
    net::serviceOf(context).replace(std::move(transport));
}

}  // namespace nv::hosting
