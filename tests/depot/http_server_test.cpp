#include "depot/http_server.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "depot_test_kit.h"

namespace depot {
namespace {

using testing::bareDriver;
using ::testing::HasSubstr;
using testing::ServerIdentity;
using ::testing::StartsWith;
using testing::TemporaryFolder;

struct Reply {
    CURLcode code = CURLE_OK;
    long status = 0;
    std::map<std::string, std::string> fields;
    std::string body;
};

std::size_t takeBody(char* bytes, std::size_t, std::size_t count, void* reply) {
    static_cast<Reply*>(reply)->body.append(bytes, count);
    return count;
}

std::size_t takeField(char* bytes, std::size_t, std::size_t count, void* reply) {
    const std::string line(bytes, count);
    const std::size_t colon = line.find(": ");
    if (colon != std::string::npos)
        static_cast<Reply*>(reply)->fields[line.substr(0, colon)] =
            line.substr(colon + 2, line.size() - colon - 4);
    return count;
}

/// One client with its connection.
class Client {
  public:
    explicit Client(std::string certificateFile) : certificateFile_(std::move(certificateFile)) {}

    Reply request(const std::string& url, const std::vector<std::string>& fields = {},
                  const std::string& method = "GET") {
        Reply reply;
        CURL* const curl = curl_.get();
        curl_easy_reset(curl);
        curl_slist* list = nullptr;
        for (const std::string& each : fields) list = curl_slist_append(list, each.c_str());
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list);
        curl_easy_setopt(curl, CURLOPT_CAINFO, certificateFile_.c_str());
        curl_easy_setopt(curl, CURLOPT_PATH_AS_IS, 1L);
        curl_easy_setopt(curl, CURLOPT_TIMEOUT, 20L);
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &takeBody);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply);
        curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &takeField);
        curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply);
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
        if (method == "HEAD") curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
        reply.code = curl_easy_perform(curl);
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
        long connections = 0;
        curl_easy_getinfo(curl, CURLINFO_NUM_CONNECTS, &connections);
        connections_ += connections;
        curl_slist_free_all(list);
        return reply;
    }
    long connections() const { return connections_; }

  private:
    std::unique_ptr<CURL, void (*)(CURL*)> curl_{curl_easy_init(), &curl_easy_cleanup};
    std::string certificateFile_;
    long connections_ = 0;
};

/// A server on a free port of the loopback address, run by a thread.
class RunningServer {
  public:
    RunningServer(Catalogue& catalogue, std::optional<HttpServer::Settings::Tls> tls)
        : stop_(::eventfd(0, EFD_CLOEXEC)) {
        HttpServer::Settings settings;
        settings.tls = std::move(tls);
        auto opened = HttpServer::open(std::move(settings), catalogue);
        if (!opened) throw std::runtime_error(opened.error().message);
        server_ = std::move(*opened);
        thread_ = std::thread([this] { ended_ = server_->run(stop_.get()).has_value(); });
    }
    ~RunningServer() { stop(); }

    bool stop() {
        const std::uint64_t one = 1;
        if (::write(stop_.get(), &one, sizeof one) != sizeof one) return false;
        if (thread_.joinable()) thread_.join();
        return ended_;
    }
    const HttpServer& operator*() const { return *server_; }
    const HttpServer* operator->() const { return server_.get(); }

  private:
    FileDescriptor stop_;
    std::unique_ptr<HttpServer> server_;
    std::atomic<bool> ended_{false};
    std::thread thread_;
};

/// 1 MB and a bit that is a manifest all the same.
std::string largeDriver(int version, char filling) {
    return "<!--" + std::string(1 << 20, filling) + "-->" + bareDriver(version);
}

class HttpServerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        packages_.write("large.nvi", largeDriver(1, 'x'));
        ASSERT_TRUE(catalogue_.refresh());
    }

    Client client() const { return Client(identity_.certificateFile); }
    std::string url(const std::string& rest) const { return server_->url() + rest; }

    TemporaryFolder packages_;
    TemporaryFolder certificates_;
    ServerIdentity identity_{certificates_};
    Catalogue catalogue_{packages_.path(), [](const std::string&) {}, std::chrono::milliseconds(0)};
    RunningServer server_{catalogue_,
                          HttpServer::Settings::Tls{identity_.certificateFile, identity_.keyFile}};
};

TEST_F(HttpServerTest, AnswersSelectsAndFilesOverOneVerifiedConnection) {
    packages_.write("größe & +.nvi", bareDriver(3));
    Client client = this->client();
    const Reply select = client.request(
        url("/drivers/select?q=*:*&fq=filename:(IN+\"gr%C3%B6%C3%9Fe%20%26%20%2B.nvi\")"
            "+AND+autoUpdate:\"true\"&rows=100000"));
    EXPECT_EQ(select.status, 200);
    EXPECT_EQ(select.fields.at("Content-Type"), "application/xml; charset=UTF-8");
    EXPECT_THAT(select.body, HasSubstr("<str name=\"filename\">größe &amp; +.nvi</str>"));
    const Reply file = client.request(url("/gr%C3%B6%C3%9Fe%20%26%20%2B.nvi"));
    EXPECT_EQ(file.body, bareDriver(3));
    EXPECT_EQ(client.request(url("/agents/select?q=filename:()")).status, 400);
    EXPECT_EQ(client.request(url("/large.nvi")).body, largeDriver(1, 'x'));
    const Reply question = client.request(url("/drivers/select?q=*:*&fq=filename:large?nvi"));
    EXPECT_THAT(question.body, HasSubstr("numFound=\"1\""));
    EXPECT_EQ(client.connections(), 1);
}

TEST_F(HttpServerTest, ResumesOnlyTheVeryFileThatWasBegun) {
    Client client = this->client();
    const Reply head = client.request(url("/large.nvi"), {}, "HEAD");
    const std::string tag = head.fields.at("ETag");
    EXPECT_EQ(head.fields.at("Content-Length"), std::to_string(largeDriver(1, 'x').size()));
    EXPECT_EQ(head.fields.at("Accept-Ranges"), "bytes");
    const Reply part =
        client.request(url("/large.nvi"), {"Range: bytes=1000000-", "If-Range: " + tag});
    EXPECT_EQ(part.status, 206);
    EXPECT_EQ(part.body, largeDriver(1, 'x').substr(1000000));
    EXPECT_THAT(part.fields.at("Content-Range"), StartsWith("bytes 1000000-"));
    packages_.write("large.nvi", largeDriver(1, 'y'));
    const Reply whole =
        client.request(url("/large.nvi"), {"Range: bytes=1000000-", "If-Range: " + tag});
    EXPECT_EQ(whole.status, 200);
    EXPECT_EQ(whole.body, largeDriver(1, 'y'));
    EXPECT_NE(whole.fields.at("ETag"), tag);
    EXPECT_EQ(client.request(url("/large.nvi"), {"Range: bytes=9999999-"}).status, 416);
}

TEST_F(HttpServerTest, ServesNothingButItsDocuments) {
    packages_.write(".hidden.nvi", bareDriver(1));
    packages_.write("large.nvi.json", "{}");
    packages_.write("broken.nvi", "<a>");
    std::filesystem::create_directory(packages_.path("inner"));
    packages_.write("inner/deep.nvi", bareDriver(1));
    Client client = this->client();
    for (const char* target :
         {"/", "/none.nvi", "/.hidden.nvi", "/large.nvi.json", "/broken.nvi", "/inner/deep.nvi",
          "/../server.key", "/..%2Fserver.key", "/%2e%2e/server.key", "/inner/../large.nvi",
          "//large.nvi", "/large.nvi/", "/select", "/drivers/select/", "/large.nvi%00"}) {
        EXPECT_EQ(client.request(url(target)).status, 404) << target;
    }
    EXPECT_EQ(client.request(url("/%zz")).status, 400);
    EXPECT_EQ(client.request(url("/%DC.nvi")).status, 400);
    const Reply deletion = client.request(url("/large.nvi"), {}, "DELETE");
    EXPECT_EQ(deletion.status, 405);
    EXPECT_EQ(deletion.fields.at("Allow"), "GET, HEAD");
}

TEST_F(HttpServerTest, BoundsWhatARequestMayHold) {
    Client client = this->client();
    EXPECT_EQ(client.request(url("/drivers/select?q=" + std::string(8000, 'a'))).status, 400);
    EXPECT_EQ(client.request(url("/drivers/select?q=" + std::string(9000, 'a'))).status, 414);
    EXPECT_EQ(client.request(url("/drivers/select?q=" + std::string(900000, 'a'))).status, 414);
    EXPECT_EQ(client.request(url("/"), {"X: " + std::string(40000, 'a')}).status, 431);
    EXPECT_EQ(client.request(url("/large.nvi"), {"Range: bytes=" + std::string(20000, '1')}).status,
              200);
}

TEST_F(HttpServerTest, ServesManyConnectionsAtOnce) {
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int client = 0; client < 8; ++client) {
        threads.emplace_back([this, &good] {
            Client own = this->client();
            for (int count = 0; count < 20; ++count) {
                const Reply file = own.request(url("/large.nvi"));
                const Reply select = own.request(url("/drivers/select?q=*:*"));
                EXPECT_EQ(file.status, 200) << file.code;
                EXPECT_EQ(select.status, 200) << select.code;
                if (file.body == largeDriver(1, 'x') && select.status == 200) ++good;
            }
        });
    }
    for (int change = 0; change < 20; ++change) packages_.write("other.nvi", bareDriver(change));
    for (std::thread& each : threads) each.join();
    EXPECT_EQ(good, 160);
}

TEST_F(HttpServerTest, StopsAtOnceAlthoughClientsStayConnected) {
    Client idle = this->client();
    EXPECT_EQ(idle.request(url("/large.nvi"), {}, "HEAD").status, 200);
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_TRUE(server_.stop());
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(20));
    EXPECT_NE(idle.request(url("/large.nvi")).code, CURLE_OK);
}

TEST(HttpServerFailureTest, NamesTheFileOrAddressThatCannotBeUsed) {
    const TemporaryFolder folder;
    const ServerIdentity identity(folder);
    Catalogue catalogue(folder.path(), [](const std::string&) {});
    const auto reason = [&](HttpServer::Settings settings) {
        const auto opened = HttpServer::open(std::move(settings), catalogue);
        return opened ? "" : opened.error().message;
    };
    HttpServer::Settings settings;
    settings.tls = {identity.keyFile, identity.keyFile};
    EXPECT_THAT(reason(settings), StartsWith("certificate " + identity.keyFile));
    settings.tls = {identity.certificateFile, identity.certificateFile};
    EXPECT_THAT(reason(settings), StartsWith("private key " + identity.certificateFile));
    settings.tls = std::nullopt;
    settings.address = "no.address";
    EXPECT_THAT(reason(settings), HasSubstr("no.address"));
    settings.address = "127.0.0.1";
    RunningServer other(catalogue, std::nullopt);
    settings.port = other->port();
    EXPECT_THAT(reason(settings), HasSubstr("cannot listen on 127.0.0.1:"));
}

/// What a plain server says to these bytes, up to the end of the connection.
std::string replyTo(const HttpServer& server, const std::string& bytes) {
    const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(server.port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        return "no connection";
    if (::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) return "not sent";
    return readAtMost(socket, 1 << 20).value_or("no end");
}

TEST(HttpServerRawTest, AnswersWhatNoWellBehavedClientSends) {
    const TemporaryFolder folder;
    folder.write("a.nvi", bareDriver(1));
    Catalogue catalogue(folder.path(), [](const std::string&) {});
    const RunningServer server(catalogue, std::nullopt);
    const std::string close = "Connection: close\r\n\r\n";
    const std::vector<std::pair<std::string, std::string>> table{
        {"GET /a b.nvi HTTP/1.1\r\n" + close, "HTTP/1.1 400"},
        {"GET /drivers/select?q=\xC3\x9C HTTP/1.1\r\n" + close, "HTTP/1.1 400"},
        {"GET /a.nvi HTTP/3\r\n" + close, "HTTP/1.1 400"},
        {"\x16\x03\x01\x02\r\n\r\n", "HTTP/1.1 400"},
        {"POST /a.nvi HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello", "HTTP/1.1 405"},
        {"GET /a.nvi HTTP/1.0\r\n\r\n", "HTTP/1.1 200"},
        {"GET /a.nvi HTTP/1.1\r\nExpect: 100-continue\r\n" + close, "HTTP/1.1 200"},
    };
    for (const auto& [bytes, expected] : table)
        EXPECT_THAT(replyTo(*server, bytes), StartsWith(expected)) << bytes;
    // two requests in one packet
    const std::string both =
        replyTo(*server, "GET /none HTTP/1.1\r\n\r\nGET /a.nvi HTTP/1.1\r\n" + close);
    EXPECT_THAT(both, StartsWith("HTTP/1.1 404"));
    EXPECT_THAT(both, HasSubstr(bareDriver(1)));
}

}  // namespace
}  // namespace depot
