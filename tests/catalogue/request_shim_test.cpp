#include <gtest/gtest.h>

#include "http_solr_request_shim.h"

namespace {

using Callback =
    std::function<void(const nv::net::http::HttpResponse&, const boost::system::error_code&)>;
using Shim = HttpSolrRequestShim<Callback>;

TEST(RequestShim, PassesTheAnswerOnUntilItIsCancelled) {
    int status = 0;
    const auto shim = std::make_shared<Shim>(
        nullptr, [&](const nv::net::http::HttpResponse& response,
                     const boost::system::error_code&) { status = response.status(); });
    shim->onResponse({200, ""}, {});
    EXPECT_EQ(status, 200);
    shim->cancelled = true;
    shim->onResponse({404, ""}, {});
    EXPECT_EQ(status, 200);
}

TEST(RequestShim, WithoutACallbackSaysSo) {
    Shim shim(nullptr, Callback());
    EXPECT_THROW(shim.onResponse({200, ""}, {}), std::bad_function_call);
}

}  // namespace
