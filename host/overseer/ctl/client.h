#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <tl/expected.hpp>

#include "ctl/interruption.h"

namespace overseer::ctl {

/// Why a request has no answer that can be used.
struct Failure {
    enum class Kind {
        kNoHost,       ///< nobody listens on the socket
        kRefused,      ///< the host answered with an error: `code` and `message` are its own
        kBroken,       ///< the connection broke, or the answer makes no sense
        kInterrupted,  ///< the user left
    };
    Kind kind;
    std::string code;
    std::string message;
};

template <typename T = void>
using Answered = tl::expected<T, Failure>;

struct Reply {
    long status = 0;
    std::string body;
};

/// Talks to the host of one controller root over its control socket. One request at a time.
class Client {
  public:
    /// `interruption` must outlive it.
    Client(std::string root, const Interruption& interruption);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    const std::string& root() const;
    /// Answers of up to 1 GiB. An error status is a failure of kind kRefused.
    Answered<Reply> get(const std::string& target);
    Answered<Reply> post(const std::string& target, const std::string& body);
    /// Gives each line of an endless answer as it comes, until the host ends it or `line` says
    /// false.
    Answered<> follow(const std::string& target, const std::function<bool(std::string_view)>& line);

  private:
    class Transfer;
    std::unique_ptr<Transfer> transfer_;
};

}  // namespace overseer::ctl
