#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/asio/buffer.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nv/curl.h>
#include <nv/http.h>
#include <nvhost/environment.h>
#include <nvhost/transport.h>

#include "loopback_server.h"
#include "test_authority.h"
#include "test_loop.h"

namespace nv::test {

/// A loop, an authority that it trusts, and settings with which a test ends soon.
class NetTest : public ::testing::Test {
  protected:
    NetTest() {
        writeFile(caFile, authority.pem());
        settings.caFile = caFile;
        configure();
    }

    void configure() { hosting::configureTransport(loop.context(), settings); }
    hosting::Transport& transport() { return hosting::transportOf(loop.context()); }

    TestLoop loop;
    TemporaryFolder folder;
    TestAuthority authority;
    std::string caFile = folder.path("ca-bundle.crt");
    hosting::TransportSettings settings;
};

/// An HttpClient with what it was told.
struct Query {
    Query(TestLoop& loop, const std::string& caFile)
        : client(std::make_unique<net::http::HttpClient>(
              loop.context(), [this](const net::http::HttpResponse& answer,
                                     const boost::system::error_code& failure) {
                  ++completions;
                  response = answer;
                  error = failure;
              })) {
        client->setVerifyFile(caFile);
        client->setVerifyMode(1);
    }

    boost::system::error_code request(const std::string& url) {
        boost::system::error_code urlError;
        const auto parsed = net::http::Url::createUrl(url, urlError);
        EXPECT_FALSE(urlError) << url;
        return client->asyncRequest(net::http::HttpRequest(parsed));
    }
    bool done() const { return completions > 0; }

    int completions = 0;
    net::http::HttpResponse response;
    boost::system::error_code error;
    std::unique_ptr<net::http::HttpClient> client;
};

/// What the callbacks of a download were told.
struct Download {
    Curl::Transfer::Callbacks callbacks() {
        Curl::Transfer::Callbacks callbacks;
        callbacks.started = [this](Curl::Transfer::Ptr, int status) { statuses.push_back(status); };
        callbacks.header = [this](Curl::Transfer::Ptr, const std::string& line) {
            headers.push_back(line);
        };
        callbacks.data = [this](Curl::Transfer::Ptr, const boost::asio::const_buffer& data) {
            bytes.append(static_cast<const char*>(data.data()), data.size());
            return false;
        };
        callbacks.progress = [this](Curl::Transfer::Ptr, std::uint64_t received,
                                    std::uint64_t total) {
            progress = {received, total};
        };
        callbacks.completed = [this](Curl::Transfer::Ptr, const Curl::Code& result) {
            ++completions;
            code = result;
        };
        return callbacks;
    }
    bool done() const { return completions > 0; }

    std::vector<int> statuses;
    std::vector<std::string> headers;
    std::string bytes;
    std::pair<std::uint64_t, std::uint64_t> progress;
    int completions = 0;
    Curl::Code code;
};

}  // namespace nv::test
