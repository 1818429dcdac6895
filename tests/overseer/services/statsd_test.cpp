#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <queue>

#include "fake_clock.h"
#include "services/statsd_client.h"

namespace {

using namespace overseer;
using testing::ElementsAre;

/// A UDP socket on the loopback.
class Server {
  public:
    Server() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(descriptor_, generic, length), 0);
        EXPECT_EQ(getsockname(descriptor_, generic, &length), 0);
        port_ = ntohs(address.sin_port);
        // The same port of the other family, where there is one: a name may mean either.
        sockaddr_in6 other{};
        other.sin6_family = AF_INET6;
        other.sin6_addr = in6addr_loopback;
        other.sin6_port = address.sin_port;
        (void)bind(sixth_, reinterpret_cast<sockaddr*>(&other), sizeof(other));
    }
    ~Server() {
        close(descriptor_);
        close(sixth_);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t port() const { return port_; }
    /// The next datagram; "(none)" when none comes within five seconds.
    std::string receive() const {
        pollfd waiting[] = {{descriptor_, POLLIN, 0}, {sixth_, POLLIN, 0}};
        if (poll(waiting, 2, 5000) < 1) return "(none)";
        char buffer[2048];
        const int readable = waiting[0].revents != 0 ? descriptor_ : sixth_;
        const ssize_t size = recv(readable, buffer, sizeof(buffer), 0);
        return {buffer, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
    }
    bool isEmpty() const {
        pollfd waiting[] = {{descriptor_, POLLIN, 0}, {sixth_, POLLIN, 0}};
        return poll(waiting, 2, 0) == 0;
    }

  private:
    int descriptor_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    int sixth_ = socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::uint16_t port_ = 0;
};

/// Stands for the I/O thread: takes what other threads post, and runs it here.
class Loop {
  public:
    StatsdClient::Post post() {
        return [this](std::function<void()> work) {
            const std::lock_guard lock(mutex_);
            work_.push(std::move(work));
            posted_.notify_one();
        };
    }
    /// Runs the next piece of work; false when none comes within five seconds.
    bool runOne() {
        std::unique_lock lock(mutex_);
        if (!posted_.wait_for(lock, std::chrono::seconds(5), [this] { return !work_.empty(); }))
            return false;
        const auto work = std::move(work_.front());
        work_.pop();
        lock.unlock();
        work();
        return true;
    }

  private:
    std::mutex mutex_;
    std::condition_variable posted_;
    std::queue<std::function<void()>> work_;
};

class StatsdTest : public testing::Test {
  protected:
    StatsdSettings settings(const std::string& host = "127.0.0.1") const {
        return {host, server_.port()};
    }
    Server server_;
    Loop loop_;
    std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>(0);
};

const std::string kAgent = "overseer.agent.driverupdate";

TEST_F(StatsdTest, SendsTheThreeWireForms) {
    StatsdClient client(settings(), clock_, loop_.post());
    EXPECT_TRUE(client.Count(kAgent, "cloud_update_success", "lamp-2.nvz").sent);
    EXPECT_EQ(server_.receive(),
              "overseer.agent.driverupdate.cloud_update_success:1|c|#subject:lamp-2.nvz");
    client.Count(kAgent, "update_restart_overseer", 1, 0);
    EXPECT_EQ(server_.receive(), "overseer.agent.driverupdate.update_restart_overseer:1|c");
    client.Count(kAgent + ".updatetime", "lamp.nvz", "4294967295");
    EXPECT_EQ(server_.receive(),
              "overseer.agent.driverupdate.updatetime:4294967295|ms|#file:lamp.nvz");
    StatsdSettings other = settings();
    other.durationNamespaces = {"mine.time"};
    StatsdClient mine(other, clock_, loop_.post());
    mine.Count("mine.time", "x", "5");
    EXPECT_EQ(server_.receive(), "mine.time:5|ms|#file:x");
}

TEST_F(StatsdTest, MakesEveryTextFitForTheWire) {
    StatsdClient client(settings(), clock_, loop_.post());
    client.Count("a b", "c|d:e", "x:1|c\ny,#z\xC3\xA9");
    EXPECT_EQ(server_.receive(), "a_b.c_d_e:1|c|#subject:x_1_c_y__z__");
    client.Count("a", "b", "");
    EXPECT_EQ(server_.receive(), "a.b:1|c");
    client.Count("a", "b", std::string(500, 't'));
    EXPECT_EQ(server_.receive(), "a.b:1|c|#subject:" + std::string(200, 't'));
    client.Count("a", "b", -3, 4);
    EXPECT_EQ(server_.receive(), "a.b:-3|c|@0.250000");
    client.Count(kAgent + ".updatetime", "my lamp (1).nvz", "12");
    EXPECT_EQ(server_.receive(),
              "overseer.agent.driverupdate.updatetime:12|ms|#file:my_lamp__1_.nvz");
}

TEST_F(StatsdTest, SendsNoDurationThatIsNoNumber) {
    StatsdClient client(settings(), clock_, loop_.post());
    for (const char* text : {"", "-1", "1.5", "12x", "99999999999999999999"})
        EXPECT_FALSE(client.Count(kAgent + ".updatetime", "lamp.nvz", text).sent) << text;
    EXPECT_TRUE(server_.isEmpty());
}

TEST_F(StatsdTest, ResolvesANameOffThisThreadAndSendsWhatWaited) {
    StatsdClient client(settings("localhost"), clock_, loop_.post());
    client.Count("a", "early", 1, 0);
    EXPECT_TRUE(server_.isEmpty());
    ASSERT_TRUE(loop_.runOne());
    EXPECT_EQ(server_.receive(), "a.early:1|c");
    EXPECT_TRUE(client.Count("a", "late", 1, 0).sent);
    EXPECT_EQ(server_.receive(), "a.late:1|c");
}

TEST_F(StatsdTest, AsksAgainForANameThatIsNotKnownAMinuteLater) {
    StatsdClient client(settings("no-such-host.invalid"), clock_, loop_.post());
    ASSERT_TRUE(loop_.runOne());
    for (int number = 0; number < 200; ++number) client.Count("a", "b", 1, 0);
    clock_->pass(StatsdClient::kRetryAfter);
    client.Count("a", "b", 1, 0);
    EXPECT_TRUE(loop_.runOne());
}

TEST_F(StatsdTest, IsGoneWithoutWaitingForANameServer) {
    auto client = std::make_unique<StatsdClient>(settings("localhost"), clock_, loop_.post());
    client->Count("a", "b", 1, 0);
    client.reset();
    loop_.post()([] {});
    while (loop_.runOne() && !server_.isEmpty()) ADD_FAILURE() << server_.receive();
}

TEST_F(StatsdTest, ForgetsWhatAClosedPortAnswers) {
    std::uint16_t port = 0;
    {
        const Server gone;
        port = gone.port();
    }
    StatsdClient client({"127.0.0.1", port}, clock_, loop_.post());
    for (int number = 0; number < 5; ++number) EXPECT_TRUE(client.Count("a", "b", 1, 0).sent);
}

TEST_F(StatsdTest, TellsObserversWhatWasMeantAlsoWithoutAServer) {
    StatsdClient client({}, clock_, loop_.post());
    std::vector<std::string> heard;
    client.observe([&](const Metric& metric) {
        heard.push_back(metric.nameSpace + " " + metric.name + " " + metric.tag + " " +
                        std::to_string(metric.value) + (metric.duration ? " ms" : ""));
    });
    client.Count(kAgent + ".updatetime", "my lamp.nvz", "12");
    client.Count("n", "x", "a b");
    client.Count("n", "x", 4, 0);
    EXPECT_THAT(heard,
                ElementsAre(kAgent + ".updatetime my lamp.nvz  12 ms", "n x a b 1", "n x  4"));
}

}  // namespace
