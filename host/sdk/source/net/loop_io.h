#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <nv/asio_forward.h>

namespace nv::net {

/// What the network layer needs of an event loop, so that only one source compiles Asio for it.
/// Everything here is used on the loop's thread; the loop must outlive the objects.

/// Runs `function` on the loop later, never inline.
void postTo(boost::asio::io_context& context, std::function<void()> function);
/// Whether the loop was stopped or ran out of work: nothing posted runs before it is restarted.
bool loopStopped(const boost::asio::io_context& context);
/// Makes the loop's own services for what is below, so that they outlive any service made later.
void prepareLoop(boost::asio::io_context& context);

/// One timer, armed anew as often as wanted. A call that was cancelled, overtaken by another
/// arming or outlived the timer does not come, although its wait may have ended already.
class LoopTimer {
  public:
    explicit LoopTimer(boost::asio::io_context& context);
    ~LoopTimer();
    LoopTimer(const LoopTimer&) = delete;
    LoopTimer& operator=(const LoopTimer&) = delete;

    void arm(std::chrono::milliseconds delay, std::function<void()> ready);
    void cancel();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

/// Watches a duplicate of a descriptor, so that nobody who closes or reuses the original can
/// disturb the loop's own bookkeeping.
class SocketWatch : public std::enable_shared_from_this<SocketWatch> {
  public:
    enum class Event { kReadable, kWritable, kError };
    using Ready = std::function<void(Event)>;

    /// `ready` is called on the loop, never inline, again and again while what is wanted is true.
    /// Null when the descriptor cannot be duplicated or watched.
    static std::shared_ptr<SocketWatch> create(boost::asio::io_context& context, int descriptor,
                                               Ready ready);
    ~SocketWatch();
    SocketWatch(const SocketWatch&) = delete;
    SocketWatch& operator=(const SocketWatch&) = delete;

    void want(bool read, bool write);
    /// Closes the duplicate; `ready` is not called any more.
    void close();

  private:
    struct Descriptor;
    SocketWatch(std::unique_ptr<Descriptor> descriptor, Ready ready);
    void arm();
    void wait(bool write);
    void waited(bool write, bool failed);

    std::unique_ptr<Descriptor> descriptor_;
    Ready ready_;
    bool wanted_[2] = {false, false};   ///< read, write
    bool waiting_[2] = {false, false};  ///< a wait is under way for it
};

}  // namespace nv::net
