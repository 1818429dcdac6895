#pragma once

#include <map>
#include <memory>
#include <optional>

#include "curl_handle.h"
#include "loop_io.h"
#include "loop_stalls.h"

namespace nv::net {

/// libcurl's multi interface on an event loop: its sockets, its one timer, its connections.
///
/// All on the loop's thread. libcurl runs only inside the handlers of this class's own waits and
/// inside add and remove; the owner is told afterwards, outside of libcurl.
class CurlMulti {
  public:
    /// Who is told.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// libcurl has worked: transfers may have events or have ended. May destroy the CurlMulti.
        virtual void curlWorked() = 0;
        /// No socket of this transfer's can be watched any more (out of descriptors).
        virtual void curlLostSocket(void* owner) = 0;
    };

    CurlMulti(boost::asio::io_context& context, LoopStalls& stalls);
    /// Every handle was removed before.
    ~CurlMulti();
    CurlMulti(const CurlMulti&) = delete;
    CurlMulti& operator=(const CurlMulti&) = delete;

    void setOwner(std::weak_ptr<Owner> owner) { owner_ = std::move(owner); }
    /// How many idle connections are kept.
    void keepConnections(long count);
    /// @return whether libcurl took it
    bool add(CurlHandle& handle);
    void remove(CurlHandle& handle);

    struct Ended {
        void* owner = nullptr;
        int curlCode = 0;
    };
    /// The next transfer that libcurl has ended; it must be removed before asking again.
    std::optional<Ended> nextEnded();

  private:
    static int onSocket(void* easy, int socket, int what, void* self, void*);
    static int onTimer(void* multi, long milliseconds, void* self);
    static int onClose(void* self, int socket);
    void watch(void* easy, int socket, int what);
    void unwatch(int socket);
    void act(int socket, int events);

    boost::asio::io_context& context_;
    LoopStalls& stalls_;
    std::weak_ptr<Owner> owner_;
    void* multi_;
    LoopTimer timer_;
    std::optional<LoopStalls::Clock::time_point> due_;  ///< of the timer
    std::map<int, std::shared_ptr<SocketWatch>> watches_;
};

}  // namespace nv::net
