#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <filesystem>
#include <fstream>

#include <boost/asio/io_context.hpp>

#include "control/server.h"
#include "control/socket_address.h"
#include "running_server.h"

namespace overseer::control {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kHostRequest = "GET /host HTTP/1.1\r\nHost: h\r\n\r\n";

Limits smallLimits() {
    Limits limits;
    limits.body = 1000;
    limits.header = 2000;
    limits.request = std::chrono::milliseconds(200);
    limits.look = std::chrono::milliseconds(5);
    return limits;
}

struct HostileCase {
    const char* name;
    std::string bytes;
    const char* status;
};

class HostileBytes : public testing::TestWithParam<HostileCase> {};

TEST_P(HostileBytes, AreRefusedAndHarmNobody) {
    const TemporaryRoot root;
    RunningServer server(root.path(), smallLimits());
    RawPeer hostile(root.path());
    hostile.send(GetParam().bytes);
    EXPECT_THAT(hostile.readToEnd(), StartsWith(std::string("HTTP/1.1 ") + GetParam().status));
    EXPECT_THAT(exchange(root.path(), "GET", "/host"), StartsWith("HTTP/1.1 200"));
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, HostileBytes,
    testing::Values(
        HostileCase{"NotHttp", "\x16\x03\x01 hello\r\n\r\n", "400"},
        HostileCase{"TwoLengths",
                    "POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nab", "400"},
        HostileCase{"PromisesTooMuch",
                    "POST / HTTP/1.1\r\nContent-Length: 1001\r\n\r\n" + std::string(1001, 'x'),
                    "413"},
        HostileCase{
            "ChunksTooMuch",
            "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n7d0\r\n" + std::string(2000, 'x'),
            "413"},
        HostileCase{"LongHead", "GET / HTTP/1.1\r\nX: " + std::string(5000, 'x'), "431"},
        HostileCase{"HalfAHead", "GET / HTT", "408"},
        HostileCase{"HalfABody", "POST / HTTP/1.1\r\nContent-Length: 10\r\n\r\nabc", "408"},
        HostileCase{"NoPath", "GET http:/%x HTTP/1.1\r\nConnection: close\r\n\r\n", "400"}),
    [](const auto& row) { return row.param.name; });

TEST(Connections, BeyondTheLimitAreToldSo) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    std::vector<RawPeer> peers;
    for (int count = 0; count < 200; ++count) {
        peers.emplace_back(root.path());
        peers.back().send(kHostRequest);
    }
    int served = 0;
    for (RawPeer& peer : peers) {
        const std::string reply = peer.readUntil("}\n");
        served += reply.find(" 200 ") != std::string::npos ? 1 : 0;
        EXPECT_THAT(reply, AnyOf(HasSubstr("3.1.4"), HasSubstr("too_many_connections")));
    }
    EXPECT_EQ(served, 64);
    peers.clear();
    EXPECT_THAT(exchangeOnceServed(root.path()), HasSubstr(" 200 "));
}

TEST(Connections, ShareOneBudgetOfBodies) {
    const TemporaryRoot root;
    Limits limits;
    limits.body = 1000;
    limits.bodies = 1500;
    limits.smallBody = 100;
    RunningServer server(root.path(), limits);
    const auto posted = [](std::size_t size, std::size_t sent) {
        return fmt::format(
            "POST /agents/updater/commands/GET_STATE HTTP/1.1\r\nContent-Length: {}\r\n\r\n{}",
            size, "{}" + std::string(sent - 2, ' '));
    };
    {
        RawPeer half(root.path());
        half.send("GET /host HTTP/1.1\r\n\r\n" + posted(1000, 500));
        EXPECT_THAT(half.readUntil("}\n"), HasSubstr(" 200 "));
        for (const std::string& body :
             {posted(501, 501),
              std::string("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n")}) {
            RawPeer more(root.path());
            more.send(body);
            const std::string reply = more.readToEnd();
            EXPECT_THAT(reply, StartsWith("HTTP/1.1 503"));
            EXPECT_THAT(reply, HasSubstr("Retry-After: "));
            EXPECT_THAT(reply, HasSubstr("too_many_bodies"));
        }
        RawPeer small(root.path());
        small.send(posted(100, 100) + posted(500, 500) + posted(500, 500));
        for (int count = 0; count < 3; ++count) {
            EXPECT_THAT(small.readUntil("</state>"), HasSubstr(" 200 "));
        }
    }
    RawPeer later(root.path());
    later.send(posted(1000, 1000));
    EXPECT_THAT(later.readUntil("</state>"), HasSubstr(" 200 "));
}

TEST(Connections, ThatEndWhileTheyWaitGiveTheirPlaceBack) {
    const TemporaryRoot root;
    Limits limits;
    limits.connections = 1;
    RunningServer server(root.path(), limits);
    server.onLoop([](FakeServices& services) { services.idle = false; });
    { RawPeer(root.path()).send("GET /network?wait=idle HTTP/1.1\r\nHost: h\r\n\r\n"); }
    { RawPeer(root.path()).send("GET /notifications?follow=1 HTTP/1.1\r\nHost: h\r\n\r\n"); }
    EXPECT_THAT(exchangeOnceServed(root.path()), HasSubstr(" 200 "));
}

TEST(Connections, CarrySeveralRequestsAndInviteLargeBodies) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    RawPeer peer(root.path());
    peer.send(kHostRequest + kHostRequest);
    EXPECT_THAT(peer.readUntil("}\n"), HasSubstr("3.1.4"));
    EXPECT_THAT(peer.readUntil("}\n"), HasSubstr("3.1.4"));
    peer.send(
        "POST /agents/updater/commands/GET_STATE HTTP/1.1\r\nHost: h\r\n"
        "Expect: 100-continue\r\nContent-Length: 2\r\n\r\n");
    EXPECT_THAT(peer.readUntil("\r\n\r\n"), HasSubstr("100 Continue"));
    peer.send("{}");
    EXPECT_THAT(peer.readUntil("</state>"), HasSubstr("200 OK"));
}

TEST(Stopping, AnswersWhoeverWaits) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    server.onLoop([](FakeServices& services) {
        services.idle = false;
        services.run.emplace();
    });
    RawPeer idle(root.path());
    RawPeer run(root.path());
    RawPeer events(root.path());
    RawPeer half(root.path());
    idle.send("GET /network?wait=idle HTTP/1.1\r\nHost: h\r\n\r\n");
    run.send("GET /agents/updater/runs/last?wait=finished HTTP/1.1\r\nHost: h\r\n\r\n");
    events.send("GET /notifications?follow=1&from=1 HTTP/1.1\r\nHost: h\r\n\r\n");
    half.send("GET /ho");
    EXPECT_THAT(events.readUntil("\r\n\r\n"), HasSubstr("200 OK"));
    exchange(root.path(), "GET", "/host");
    server.stop();
    EXPECT_THAT(idle.readToEnd(), HasSubstr("\"stopping\""));
    EXPECT_THAT(run.readToEnd(), HasSubstr("\"stopping\""));
    EXPECT_EQ(events.readToEnd(), "0\r\n\r\n");
    EXPECT_EQ(half.readToEnd(), "");
    EXPECT_FALSE(std::filesystem::exists(controlSocketPath(root.path())));
}

TEST(Stopping, AnswersThoseWhoJustCame) {
    const TemporaryRoot root;
    for (int round = 0; round < 20; ++round) {
        RunningServer server(root.path());
        std::vector<RawPeer> peers;
        for (int count = 0; count < 40; ++count) {
            peers.emplace_back(root.path());
            peers.back().send(kHostRequest);
        }
        server.stop();
        for (RawPeer& peer : peers) {
            EXPECT_THAT(peer.readUntil("}\n"), HasSubstr("}"));
        }
    }
}

TEST(Stopping, DoesNotWaitForeverForAPeerThatNeverReads) {
    const TemporaryRoot root;
    Limits limits;
    limits.farewell = std::chrono::milliseconds(50);
    RunningServer server(root.path(), limits);
    server.onLoop([](FakeServices& services) {
        services.publish("<n>" + std::string(8'000'000, 'x') + "</n>");
    });
    RawPeer deaf(root.path());
    deaf.send("GET /notifications HTTP/1.1\r\nHost: h\r\n\r\n");
    EXPECT_THAT(deaf.readUntil("\r\n\r\n"), HasSubstr("200 OK"));
    server.stop();
}

TEST(Socket, LiesBehindALongPathAndOverAStaleOne) {
    const TemporaryRoot root("/" + std::string(100, 'a') + "/" + std::string(100, 'b'));
    std::filesystem::create_directory(root.path() + "/run");
    {
        RunningServer first(root.path());
        std::filesystem::rename(controlSocketPath(root.path()), root.path() + "/kept");
    }
    std::filesystem::rename(root.path() + "/kept", controlSocketPath(root.path()));
    RunningServer second(root.path());
    EXPECT_THAT(exchange(root.path(), "GET", "/host"), HasSubstr("200 OK"));
}

TEST(Socket, IsNotPutOverSomethingElse) {
    const TemporaryRoot root;
    std::filesystem::create_directories(controlSocketPath(root.path()));
    boost::asio::io_context loop;
    FakeServices services;
    const auto server = Server::start(controlSocketPath(root.path()), services, loop);
    ASSERT_FALSE(server);
    EXPECT_THAT(server.error().message, HasSubstr("overseer.sock: something that is no socket"));
}

TEST(Socket, IsForItsOwnerOnly) {
    const TemporaryRoot root;
    RunningServer server(root.path());
    const std::string path = controlSocketPath(root.path());
    struct stat found {};
    ASSERT_EQ(stat(path.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777u, 0600u);
    ASSERT_EQ(stat((root.path() + "/run").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777u, 0700u);
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become somebody else";
    }
    // Even where somebody opens the way, the peer's own identity is looked at.
    chmod(root.path().c_str(), 0755);
    chmod((root.path() + "/run").c_str(), 0755);
    chmod(path.c_str(), 0666);
    const pid_t child = fork();
    if (child == 0) {
        const bool changed = setgid(65'534) == 0 && setuid(65'534) == 0;
        const std::string reply = changed ? exchange(root.path(), "GET", "/host") : "";
        _exit(reply.find("403 Forbidden") != std::string::npos ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace overseer::control
