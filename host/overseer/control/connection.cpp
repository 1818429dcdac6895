#include "control/connection.h"

#include <fmt/format.h>
#include <poll.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>

#include "control/service_desk.h"

// One peer on the server's thread. The handlers in the order in which they run:
//   readHead -> (invite) -> readBody -> ask -> taken: reply | look ... | beginStream
//   reply -> readHead, or linger -> closed
//   beginStream -> nextPage -> writePage -> nextPage ... -> endStream -> linger
namespace overseer::control {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using Socket = asio::local::stream_protocol::socket;
using ErrorCode = boost::system::error_code;
using SteadyClock = std::chrono::steady_clock;

Response refusalOf(const ErrorCode& error, const Limits& limits) {
    if (error == http::error::body_limit) {
        return refusal(413, "body_too_large",
                       fmt::format("the body is larger than {} bytes", limits.body));
    }
    if (error == http::error::header_limit) {
        return refusal(431, "head_too_large",
                       fmt::format("the head is larger than {} bytes", limits.header));
    }
    return refusal(400, "not_http", "this is no HTTP request: " + error.message());
}

Response stoppingRefusal() {
    return refusal(503, "stopping", "the host is stopping or restarting; ask again later");
}

class HttpConnection : public Connection, public std::enable_shared_from_this<HttpConnection> {
  public:
    HttpConnection(int socket, Surroundings surroundings, std::optional<Response> refused)
        : surroundings_(std::move(surroundings)),
          socket_(surroundings_.context, asio::local::stream_protocol(), socket),
          timer_(surroundings_.context),
          refused_(std::move(refused)) {}

    void start() override { readHead(); }
    void stop() override;
    void abandon() override;

  private:
    enum class State { kReading, kAsking, kWriting, kLevel, kLingering, kClosed };
    using Step = void (HttpConnection::*)();

    const Limits& limits() const { return surroundings_.limits; }
    void within(std::chrono::milliseconds limit, Step expired);
    void untimed();
    void write(std::string text, Step next);

    void readHead();
    void headRead(const ErrorCode& error);
    bool takesBody();
    void readBody();
    void readTooSlow();
    void endReading();
    void rejected(const ErrorCode& error);

    void ask();
    void takeAnswer(std::uint64_t exchange, Answer& answer);
    void look();
    void watchPeer();
    void reply(const Response& response);
    void replied();

    void beginStream();
    void nextPage();
    void takePage(std::uint64_t exchange, const NotificationPage& page, bool waited);
    void endStream();
    void linger();
    void discard();

    Surroundings surroundings_;
    Socket socket_;
    asio::steady_timer timer_;
    std::uint64_t timing_ = 0;  ///< of the timer's current use; an older one's end means nothing
    std::optional<Response> refused_;
    boost::beast::flat_buffer buffer_;
    std::optional<http::request_parser<http::string_body>> parser_;
    BodyBudget::Share body_;  ///< of the request that is read or answered
    State state_ = State::kReading;
    bool stopped_ = false;
    bool last_ = false;           ///< close once what is being written is out
    std::uint64_t exchange_ = 0;  ///< of the current question; a reply to an older one is dropped
    std::shared_ptr<Wait> wait_;
    SteadyClock::time_point waitEnd_{};
    std::optional<NotificationCursor> cursor_;
    bool chunked_ = true;
    std::string output_;
};

void HttpConnection::within(std::chrono::milliseconds limit, Step expired) {
    const std::uint64_t timing = ++timing_;
    timer_.expires_after(limit);
    timer_.async_wait([self = shared_from_this(), timing, expired](const ErrorCode& error) {
        if (!error && timing == self->timing_ && self->state_ != State::kClosed) {
            (self.get()->*expired)();
        }
    });
}

void HttpConnection::untimed() {
    ++timing_;
    timer_.cancel();
}

void HttpConnection::write(std::string text, Step next) {
    state_ = State::kWriting;
    output_ = std::move(text);
    within(limits().write, &HttpConnection::abandon);
    asio::async_write(socket_, asio::buffer(output_),
                      [self = shared_from_this(), next](const ErrorCode& error, std::size_t) {
                          if (error) {
                              self->abandon();
                          } else if (self->state_ != State::kClosed) {
                              (self.get()->*next)();
                          }
                      });
}

void HttpConnection::readHead() {
    state_ = State::kReading;
    output_.clear();
    output_.shrink_to_fit();
    body_ = {};
    parser_.emplace();
    parser_->header_limit(limits().header);
    parser_->body_limit(limits().body);
    within(limits().request, &HttpConnection::readTooSlow);
    http::async_read_header(socket_, buffer_, *parser_,
                            [self = shared_from_this()](const ErrorCode& error, std::size_t) {
                                self->headRead(error);
                            });
}

void HttpConnection::headRead(const ErrorCode& error) {
    if (state_ != State::kReading) {
        return;
    }
    if (error) {
        rejected(error);
        return;
    }
    if (refused_ || stopped_) {
        last_ = true;
        reply(stopped_ ? stoppingRefusal() : *refused_);
        return;
    }
    if (!takesBody()) {
        last_ = true;
        reply(refusal(503, "too_many_bodies",
                      fmt::format("requests of {} bytes are being sent at once already; send this "
                                  "one again in a few seconds",
                                  limits().bodies)));
        return;
    }
    if (boost::beast::iequals(parser_->get()[http::field::expect], "100-continue")) {
        write("HTTP/1.1 100 Continue\r\n\r\n", &HttpConnection::readBody);
    } else {
        readBody();
    }
}

bool HttpConnection::takesBody() {
    // What comes in chunks may come to the most that is taken.
    const std::uint64_t size =
        parser_->chunked() ? limits().body : parser_->content_length().value_or(0);
    if (size <= limits().smallBody) return true;
    body_ = surroundings_.bodies.take(size);
    return static_cast<bool>(body_);
}

void HttpConnection::readBody() {
    state_ = State::kReading;
    within(limits().request, &HttpConnection::readTooSlow);
    http::async_read(socket_, buffer_, *parser_,
                     [self = shared_from_this()](const ErrorCode& error, std::size_t) {
                         if (self->state_ != State::kReading) {
                             return;
                         }
                         if (error) {
                             self->rejected(error);
                         } else if (self->stopped_) {
                             self->reply(stoppingRefusal());
                         } else {
                             self->ask();
                         }
                     });
}

void HttpConnection::readTooSlow() {
    if (!parser_->got_some()) {
        abandon();
        return;
    }
    last_ = true;
    reply(refusal(408, "request_too_slow", "the request did not arrive in time"));
    socket_.cancel();
}

void HttpConnection::rejected(const ErrorCode& error) {
    // An ended connection has nobody to tell; what is left is a peer that speaks something else.
    if (error.category() != http::make_error_code(http::error::bad_method).category() ||
        error == http::error::end_of_stream || error == http::error::partial_message) {
        abandon();
        return;
    }
    last_ = true;
    reply(refusalOf(error, limits()));
}

void HttpConnection::ask() {
    auto& message = parser_->get();
    auto request = std::make_shared<Request>();
    request->method = std::string(message.method_string());
    request->accept = std::string(message[http::field::accept]);
    request->lastEventId = std::string(message["Last-Event-ID"]);
    last_ = last_ || !parser_->keep_alive();
    chunked_ = message.version() >= 11;
    if (!readTarget({message.target().data(), message.target().size()}, *request)) {
        reply(refusal(400, "bad_target", "the request's target is no path of this interface"));
        return;
    }
    request->body = std::move(message.body());
    state_ = State::kAsking;
    untimed();
    watchPeer();
    surroundings_.passage->toServices([passage = surroundings_.passage, weak = weak_from_this(),
                                       exchange = ++exchange_, request](ServiceDesk& desk) {
        auto result = std::make_shared<Answer>(answer(desk.services(), *request));
        passage->toServer([weak, exchange, result] {
            if (const auto self = weak.lock()) {
                self->takeAnswer(exchange, *result);
            }
        });
    });
}

void HttpConnection::takeAnswer(std::uint64_t exchange, Answer& answer) {
    if (exchange != exchange_ || state_ != State::kAsking) {
        return;
    }
    body_ = {};
    if (const auto* response = std::get_if<Response>(&answer)) {
        reply(*response);
    } else if (auto* wait = std::get_if<Wait>(&answer)) {
        wait_ = std::make_shared<Wait>(std::move(*wait));
        waitEnd_ = SteadyClock::now() + wait_->limit;
        look();
    } else {
        cursor_ = std::get<Follow>(answer).cursor;
        beginStream();
    }
}

void HttpConnection::look() {
    const bool lastLook = SteadyClock::now() >= waitEnd_;
    surroundings_.passage->toServices([passage = surroundings_.passage, weak = weak_from_this(),
                                       exchange = ++exchange_, wait = wait_,
                                       lastLook](ServiceDesk& desk) {
        auto found =
            std::make_shared<std::optional<Response>>(lookAt(*wait, desk.services(), lastLook));
        passage->toServer([weak, exchange, found] {
            const auto self = weak.lock();
            if (!self || exchange != self->exchange_ || self->state_ != State::kAsking) {
                return;
            }
            if (*found) {
                self->reply(**found);
            } else {
                self->within(self->limits().look, &HttpConnection::look);
            }
        });
    });
}

void HttpConnection::watchPeer() {
    // A peer that went away must not keep its place among the connections while it waits.
    socket_.async_wait(Socket::wait_read, [self = shared_from_this()](const ErrorCode& error) {
        if (error || (self->state_ != State::kAsking && self->state_ != State::kLevel)) {
            return;
        }
        pollfd peer{self->socket_.native_handle(), 0, 0};
        if (poll(&peer, 1, 0) > 0 && (peer.revents & POLLHUP) != 0) {
            self->abandon();
        }
    });
}

void HttpConnection::reply(const Response& response) {
    ++exchange_;
    wait_.reset();
    write(toWire(response, last_), &HttpConnection::replied);
}

void HttpConnection::replied() {
    if (last_) {
        linger();
    } else {
        readHead();
    }
}

void HttpConnection::beginStream() {
    ++exchange_;
    const bool lines = cursor_->format() == StreamFormat::kLines;
    write(streamHead(lines ? "application/x-ndjson" : "text/event-stream", chunked_),
          &HttpConnection::nextPage);
}

void HttpConnection::nextPage() {
    if (cursor_->ended() || stopped_) {
        endStream();
        return;
    }
    state_ = State::kLevel;
    untimed();
    surroundings_.passage->toServices([passage = surroundings_.passage, weak = weak_from_this(),
                                       exchange = ++exchange_,
                                       next = cursor_->next()](ServiceDesk& desk) {
        desk.whenAvailable(next, weak,
                           [passage, weak, exchange](NotificationPage page, bool waited) {
                               auto held = std::make_shared<NotificationPage>(std::move(page));
                               passage->toServer([weak, exchange, held, waited] {
                                   if (const auto self = weak.lock()) {
                                       self->takePage(exchange, *held, waited);
                                   }
                               });
                           });
    });
}

void HttpConnection::takePage(std::uint64_t exchange, const NotificationPage& page, bool waited) {
    if (exchange != exchange_ || state_ != State::kLevel) {
        return;
    }
    std::string text = cursor_->take(page, waited);
    if (chunked_) {
        text = fmt::format("{:x}\r\n{}\r\n", text.size(), text);
    }
    write(std::move(text), &HttpConnection::nextPage);
}

void HttpConnection::endStream() {
    write(chunked_ ? "0\r\n\r\n" : "", &HttpConnection::linger);
}

void HttpConnection::linger() {
    // Closing with bytes unread would reset the connection under the answer: what the peer still
    // sends is read and dropped, until it closes or its time is up.
    ErrorCode ignored;
    if (parser_->is_done() && socket_.available(ignored) == 0) {
        abandon();
        return;
    }
    state_ = State::kLingering;
    socket_.shutdown(Socket::shutdown_send, ignored);
    within(limits().farewell, &HttpConnection::abandon);
    buffer_.clear();
    discard();
}

void HttpConnection::discard() {
    socket_.async_read_some(buffer_.prepare(16'384),
                            [self = shared_from_this()](const ErrorCode& error, std::size_t) {
                                if (error) {
                                    self->abandon();
                                } else if (self->state_ == State::kLingering) {
                                    self->discard();
                                }
                            });
}

void HttpConnection::stop() {
    const State before = state_;
    last_ = true;
    stopped_ = true;
    switch (before) {
        case State::kReading:
            // What has arrived is known only once the handlers that wait have run.
            asio::post(surroundings_.context, [self = shared_from_this()] { self->endReading(); });
            return;
        case State::kAsking:
            reply(stoppingRefusal());
            return;
        case State::kLevel:
            endStream();
            return;
        case State::kWriting:
        case State::kLingering:
        case State::kClosed:
            return;
    }
}

void HttpConnection::endReading() {
    if (state_ != State::kReading) {
        return;
    }
    ErrorCode ignored;
    if (socket_.available(ignored) == 0) {
        abandon();
        return;
    }
    socket_.cancel(ignored);
    reply(stoppingRefusal());
}

void HttpConnection::abandon() {
    if (state_ == State::kClosed) {
        return;
    }
    state_ = State::kClosed;
    ++exchange_;
    timer_.cancel();
    ErrorCode ignored;
    socket_.close(ignored);
    surroundings_.closed(*this);
}

}  // namespace

std::shared_ptr<Connection> makeConnection(int socket, Connection::Surroundings surroundings,
                                           std::optional<Response> refused) {
    return std::make_shared<HttpConnection>(socket, std::move(surroundings), std::move(refused));
}

}  // namespace overseer::control
