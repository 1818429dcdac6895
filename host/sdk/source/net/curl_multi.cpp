// The seam between libcurl and the loop. libcurl's callbacks below only set watches and the timer;
// whatever must call libcurl or anybody else waits for the loop.
#include "curl_multi.h"

#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <new>

namespace nv::net {

namespace {

// While transfers run the loop is looked at this often, so that a handler which kept it from its
// work is noticed whoever's handler that was.
constexpr long kLongestWait = 1000;

CURLM* startMulti() {
    static const CURLcode initialized = curl_global_init(CURL_GLOBAL_DEFAULT);
    CURLM* multi = initialized == CURLE_OK ? curl_multi_init() : nullptr;
    if (multi == nullptr) throw std::bad_alloc();
    return multi;
}

}  // namespace

CurlMulti::CurlMulti(boost::asio::io_context& context, LoopStalls& stalls)
    : context_(context), stalls_(stalls), multi_(startMulti()), timer_(context) {
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &CurlMulti::onSocket);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &CurlMulti::onTimer);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_MULTIPLEX));
}

CurlMulti::~CurlMulti() {
    // Closing the kept connections calls back for their sockets: the watches go last.
    curl_multi_cleanup(multi_);
    timer_.cancel();
    for (const auto& [socket, watch] : watches_) watch->close();
}

void CurlMulti::keepConnections(long count) {
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, count);
}

bool CurlMulti::add(CurlHandle& handle) {
    auto* easy = static_cast<CURL*>(handle.native());
    curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &CurlMulti::onClose);
    curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
    return curl_multi_add_handle(multi_, easy) == CURLM_OK;
}

void CurlMulti::remove(CurlHandle& handle) {
    curl_multi_remove_handle(multi_, static_cast<CURL*>(handle.native()));
}

std::optional<CurlMulti::Ended> CurlMulti::nextEnded() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        Ended ended{nullptr, message->data.result};
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &ended.owner);
        return ended;
    }
    return std::nullopt;
}

int CurlMulti::onSocket(void* easy, int socket, int what, void* self, void*) {
    auto& multi = *static_cast<CurlMulti*>(self);
    if (what == CURL_POLL_REMOVE) {
        multi.unwatch(socket);
    } else {
        multi.watch(easy, socket, what);
    }
    return 0;
}

int CurlMulti::onTimer(void*, long milliseconds, void* self) {
    auto& multi = *static_cast<CurlMulti*>(self);
    if (milliseconds < 0) {
        multi.due_.reset();
        multi.timer_.cancel();
        return 0;
    }
    // Always a wait, even of nothing: libcurl must not be entered from its own callback.
    const std::chrono::milliseconds delay(std::min(milliseconds, kLongestWait));
    multi.due_ = LoopStalls::Clock::now() + delay;
    multi.timer_.arm(delay, [&multi, weak = multi.owner_] {
        if (const auto owner = weak.lock()) {
            multi.act(CURL_SOCKET_TIMEOUT, 0);
            owner->curlWorked();
        }
    });
    return 0;
}

int CurlMulti::onClose(void* self, int socket) {
    static_cast<CurlMulti*>(self)->unwatch(socket);
    return ::close(socket);
}

// libcurl hands over sockets here that no other callback has told of (its resolver's, those of
// racing connection attempts), so this is where every watch begins.
void CurlMulti::watch(void* easy, int socket, int what) {
    auto& watch = watches_[socket];
    if (!watch) {
        watch = SocketWatch::create(
            context_, socket, [this, socket, weak = owner_](SocketWatch::Event event) {
                const auto owner = weak.lock();
                if (!owner) return;
                act(socket, event == SocketWatch::Event::kReadable   ? CURL_CSELECT_IN
                            : event == SocketWatch::Event::kWritable ? CURL_CSELECT_OUT
                                                                     : CURL_CSELECT_ERR);
                owner->curlWorked();
            });
    }
    if (watch) {
        watch->want((what & CURL_POLL_IN) != 0, (what & CURL_POLL_OUT) != 0);
        return;
    }
    watches_.erase(socket);
    void* transfer = nullptr;
    curl_easy_getinfo(static_cast<CURL*>(easy), CURLINFO_PRIVATE, &transfer);
    if (const auto owner = owner_.lock()) owner->curlLostSocket(transfer);
}

void CurlMulti::unwatch(int socket) {
    const auto found = watches_.find(socket);
    if (found == watches_.end()) return;
    found->second->close();
    watches_.erase(found);
}

void CurlMulti::act(int socket, int events) {
    if (due_) stalls_.note(*due_, LoopStalls::Clock::now());
    if (socket == CURL_SOCKET_TIMEOUT) due_.reset();
    int running = 0;
    curl_multi_socket_action(multi_, socket, events, &running);
}

}  // namespace nv::net
