#pragma once

#include <nv/http.h>

#include <memory>
#include <utility>

class norvane_agent_driverupdate;

/// Stands between a catalogue request and the agent that issued it, and goes silent once the agent
/// is going away: shared by the agent's map of requests in flight and by the request itself, so
/// that an answer that is already on its way finds it alive.
template <typename Callback>
class HttpSolrRequestShim : public std::enable_shared_from_this<HttpSolrRequestShim<Callback>> {
  public:
    /// @param issuer    not owned
    /// @param callback  the issuer's completion with its bound values
    HttpSolrRequestShim(norvane_agent_driverupdate* issuer, const Callback& completion)
        : agent(issuer), callback(completion) {}

    /// Passes the answer on, unless the request was cancelled.
    void onResponse(const nv::net::http::HttpResponse& response,
                    const boost::system::error_code& error) {
        if (cancelled) return;
        callback(response, error);
    }

    norvane_agent_driverupdate* agent;
    Callback callback;
    bool cancelled = false;
};
