#include "ctl/client.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>

#include "control/socket_address.h"

// libcurl on the control socket. Every wait also watches the user's wish to leave.
namespace overseer::ctl {
namespace {

constexpr std::size_t kMaximumAnswer = std::size_t(1) << 30;
constexpr int kWaitMilliseconds = 60'000;

struct MultiCleanup {
    void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
};
struct EasyCleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct ListCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

Failure refusalFrom(long status, const std::string& body) {
    const auto json = nlohmann::json::parse(body, nullptr, false);
    const auto error = json.is_object() ? json.value("error", nlohmann::json()) : nlohmann::json();
    if (!error.is_object()) {
        return {Failure::Kind::kBroken, {}, fmt::format("the host answered status {}", status)};
    }
    return {Failure::Kind::kRefused, error.value("code", ""),
            error.value("message", fmt::format("status {}", status))};
}

}  // namespace

class Client::Transfer {
  public:
    Transfer(std::string root, const Interruption& interruption)
        : root_(std::move(root)),
          path_(control::controlSocketPath(root_)),
          interruption_(interruption),
          multi_(curl_multi_init()),
          easy_(curl_easy_init()) {}

    const std::string& root() const { return root_; }

    Answered<Reply> run(const std::string& target, const std::string* body,
                        const std::function<bool(std::string_view)>* line) {
        const auto address = control::SocketAddress::of(path_);
        if (!address) {
            return tl::unexpected(noHost());
        }
        reply_ = {};
        line_ = line;
        leftByReader_ = false;
        prepare(address->text(), target, body);
        curl_multi_add_handle(multi_.get(), easy_.get());
        const auto code = perform();
        curl_multi_remove_handle(multi_.get(), easy_.get());
        return outcome(code);
    }

  private:
    void prepare(const std::string& socket, const std::string& target, const std::string* body);
    /// How the transfer ended; nothing when the user left.
    std::optional<CURLcode> perform();
    Answered<Reply> outcome(std::optional<CURLcode> code);
    Failure noHost() const;
    bool take(std::string_view data);
    static std::size_t received(char* data, std::size_t, std::size_t size, void* self);

    const std::string root_;
    const std::string path_;
    const Interruption& interruption_;
    std::unique_ptr<CURLM, MultiCleanup> multi_;
    std::unique_ptr<CURL, EasyCleanup> easy_;
    std::unique_ptr<curl_slist, ListCleanup> headers_;
    Reply reply_;
    const std::function<bool(std::string_view)>* line_ = nullptr;
    bool leftByReader_ = false;
};

void Client::Transfer::prepare(const std::string& socket, const std::string& target,
                               const std::string* body) {
    CURL* easy = easy_.get();
    curl_easy_reset(easy);
    curl_easy_setopt(easy, CURLOPT_UNIX_SOCKET_PATH, socket.c_str());
    curl_easy_setopt(easy, CURLOPT_URL, ("http://overseer" + target).c_str());
    curl_easy_setopt(easy, CURLOPT_PROXY, "");  // whatever the environment says
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Transfer::received);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
    // "Expect" would cost a second for every body of some size.
    headers_.reset(curl_slist_append(nullptr, "Expect:"));
    if (body != nullptr) {
        headers_.reset(curl_slist_append(headers_.release(), "Content-Type: application/json"));
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size()));
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body->c_str());
    }
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers_.get());
}

std::optional<CURLcode> Client::Transfer::perform() {
    // Looked at before anything is sent: an answer that came together with the wish to leave hides
    // it from the wait.
    while (!interruption_.requested()) {
        int running = 0;
        curl_multi_perform(multi_.get(), &running);
        if (running == 0) {
            int left = 0;
            const CURLMsg* message = curl_multi_info_read(multi_.get(), &left);
            return message != nullptr ? message->data.result : CURLE_FAILED_INIT;
        }
        curl_waitfd flag{interruption_.descriptor(), CURL_WAIT_POLLIN, 0};
        curl_multi_poll(multi_.get(), &flag, 1, kWaitMilliseconds, nullptr);
    }
    return std::nullopt;
}

Answered<Reply> Client::Transfer::outcome(std::optional<CURLcode> code) {
    if (!code) {
        return tl::unexpected(Failure{Failure::Kind::kInterrupted, {}, "interrupted"});
    }
    if (*code == CURLE_COULDNT_CONNECT) {
        return tl::unexpected(noHost());
    }
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &reply_.status);
    if (*code != CURLE_OK && !leftByReader_) {
        return tl::unexpected(Failure{Failure::Kind::kBroken,
                                      {},
                                      fmt::format("the host on {} broke the connection: {}", root_,
                                                  curl_easy_strerror(*code))});
    }
    if (reply_.status >= 400) {
        return tl::unexpected(refusalFrom(reply_.status, reply_.body));
    }
    return std::move(reply_);
}

Failure Client::Transfer::noHost() const {
    long problem = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_OS_ERRNO, &problem);
    if (problem == EACCES || problem == EPERM) {
        return {Failure::Kind::kBroken,
                {},
                fmt::format("{}: only the owner of that host may control it", path_)};
    }
    return {Failure::Kind::kNoHost,
            {},
            fmt::format("no overseer runs on {}: nobody listens on {}", root_, path_)};
}

bool Client::Transfer::take(std::string_view data) {
    if (reply_.body.size() + data.size() > kMaximumAnswer) {
        return false;
    }
    reply_.body.append(data);
    long status = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    if (line_ == nullptr || status >= 400) {
        return true;
    }
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = reply_.body.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        if (!(*line_)(std::string_view(reply_.body).substr(begin, end - begin))) {
            leftByReader_ = true;
            return false;
        }
    }
    reply_.body.erase(0, begin);
    return true;
}

std::size_t Client::Transfer::received(char* data, std::size_t, std::size_t size, void* self) {
    return static_cast<Transfer*>(self)->take({data, size}) ? size : 0;
}

Client::Client(std::string root, const Interruption& interruption)
    : transfer_(std::make_unique<Transfer>(std::move(root), interruption)) {}

Client::~Client() = default;

const std::string& Client::root() const {
    return transfer_->root();
}

Answered<Reply> Client::get(const std::string& target) {
    return transfer_->run(target, nullptr, nullptr);
}

Answered<Reply> Client::post(const std::string& target, const std::string& body) {
    return transfer_->run(target, &body, nullptr);
}

Answered<> Client::follow(const std::string& target,
                          const std::function<bool(std::string_view)>& line) {
    const auto reply = transfer_->run(target, nullptr, &line);
    if (!reply) {
        return tl::unexpected(reply.error());
    }
    return {};
}

}  // namespace overseer::ctl
