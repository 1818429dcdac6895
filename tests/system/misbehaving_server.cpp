// A catalogue that misbehaves. What its answers do is chosen while it runs, by /now?WHAT. With
// "bad_files" the answer is good, and each download does what the file's name says (see
// `downloads`) or brings a hostile package of that name; with "good" all is well, with "few" for
// three files.
//
// usage: misbehaving_server FOLDER
//
// Writes FOLDER/ca.pem, the files to begin with to FOLDER/first, and to FOLDER/announced a line
// "MD5  NAME" for each file that it offers, each time in a version that is higher by one. Its first
// line: ready GOOD EXPIRED SELFSIGNED OTHERHOST STRANGER, the base URLs.
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <set>

#include "hostile_packages.h"
#include "sdk/net/loopback_server.h"

namespace {

using faults::goodDriver;
using nv::test::Connection;
using nv::test::Identity;
using nv::test::LoopbackServer;
using nv::test::Request;

const std::set<std::string> kFew = {"good", "grows", "no_archive"};  // offered by "few"
constexpr std::size_t kEndless = 256u << 20;  // where even this server gives up

using Bytes = std::string;
/// What a download does with the bytes that it should deliver.
using Download = std::function<void(Connection&, const Request&, const Bytes&)>;

std::string head(int status, const std::string& headers) {
    return "HTTP/1.1 " + std::to_string(status) + " X\r\n" + headers + "\r\n";
}

std::string lengthOf(std::size_t size) {
    return "Content-Length: " + std::to_string(size) + "\r\n";
}

/// Half of the file, and then the connection is cut; a validator makes it resumable.
void sendHalf(Connection& connection, const Bytes& bytes, const std::string& headers) {
    connection.send(head(200, lengthOf(bytes.size()) + headers) +
                    bytes.substr(0, bytes.size() / 2));
    connection.cut();
}

/// Half of it first; then what `rest` says.
Download brokenOnce(std::function<void(Connection&, const Bytes&)> rest) {
    return [rest](Connection& connection, const Request& request, const Bytes& bytes) {
        if (request.header("range").empty()) {
            sendHalf(connection, bytes, "ETag: \"one\"\r\n");
        } else {
            rest(connection, bytes);
        }
    };
}

/// That status first, and the file when it is asked for again.
Download refusedOnce(int status) {
    return [status, asked = std::make_shared<std::atomic<int>>(0)](
               Connection& connection, const Request&, const Bytes& bytes) {
        if ((*asked)++ % 2 == 0) {
            connection.answer(status, "later", "Retry-After: 1\r\n");
        } else {
            connection.answer(200, bytes);
        }
    };
}

Download refused(int status, const std::string& headers = "") {
    return [=](Connection& connection, const Request&, const Bytes&) {
        connection.answer(status, "<html>no</html>", headers);
    };
}

void sendWithoutEnd(Connection& connection, const Request&, const Bytes&) {
    connection.send(head(200, "Connection: close\r\n"));
    const std::string piece(64u << 10, 'e');
    for (std::size_t sent = 0; sent < kEndless && connection.open(); sent += piece.size()) {
        connection.send(piece);
    }
    connection.cut();
}

void sendByteByByte(Connection& connection, const Request&, const Bytes& bytes) {
    connection.send(head(200, lengthOf(bytes.size())));
    for (std::size_t i = 0; i < bytes.size() && connection.open(); ++i) {
        connection.send(bytes.substr(i, 1));
        connection.holdFor(std::chrono::milliseconds(200));
    }
}

std::map<std::string, Download> downloads(const std::string& plainUrl) {
    return {
        {"good", [](Connection& c, const Request&, const Bytes& bytes) { c.answer(200, bytes); }},
        {"other_content", [](Connection& c, const Request&,
                             const Bytes& bytes) { c.answer(200, Bytes(bytes.size(), '?')); }},
        {"empty", [](Connection& c, const Request&, const Bytes&) { c.answer(200, ""); }},
        {"cut_in_the_middle",
         [](Connection& c, const Request&, const Bytes& bytes) { sendHalf(c, bytes, ""); }},
        {"cut_and_resumed", brokenOnce([](Connection& c, const Bytes& bytes) {
             const std::size_t half = bytes.size() / 2;
             c.send(head(206, "ETag: \"one\"\r\nContent-Range: bytes " + std::to_string(half) +
                                  "-" + std::to_string(bytes.size() - 1) + "/" +
                                  std::to_string(bytes.size()) + "\r\n" +
                                  lengthOf(bytes.size() - half)) +
                    bytes.substr(half));
         })},
        {"range_as_whole", brokenOnce([](Connection& c, const Bytes& bytes) {
             c.answer(200, bytes, "ETag: \"one\"\r\n");
         })},
        {"changed_between", brokenOnce([](Connection& c, const Bytes& bytes) {
             c.answer(200, Bytes(bytes.size(), 'z'), "ETag: \"two\"\r\n");
         })},
        {"promises_more",
         [](Connection& c, const Request&, const Bytes& bytes) {
             c.send(head(200, lengthOf(bytes.size() + 1000)) + bytes);
             c.cut();
         }},
        {"never_ends", sendWithoutEnd},
        {"byte_by_byte", sendByteByByte},
        {"silent", [](Connection& c, const Request&, const Bytes&) { c.hold(); }},
        {"stalls",
         [](Connection& c, const Request&, const Bytes& bytes) {
             c.send(head(200, lengthOf(bytes.size())) + bytes.substr(0, 10));
             c.hold();
         }},
        {"status_404", refused(404)},
        {"status_500", refused(500)},
        {"busy_for_long", refused(503, "Retry-After: 3600\r\n")},
        {"busy_429", refusedOnce(429)},
        {"busy_503", refusedOnce(503)},
        {"to_plain_http", refused(302, "Location: " + plainUrl + "\r\n")},
        {"to_file", refused(302, "Location: file:///etc/hostname\r\n")},
        {"to_itself", refused(302, "Location: to_itself.nvi\r\n")},
    };
}

std::string field(const std::string& name, const std::string& value) {
    return "<str name=\"" + name + "\">" + value + "</str>";
}

std::string document(const std::string& file, int version, const std::string& md5) {
    return "<doc>" + field("filename", file) + "<int name=\"version\">" + std::to_string(version) +
           "</int>" + field("md5sum", md5) + "</doc>\n";
}

std::string answerOf(std::size_t count, const std::string& documents) {
    return "<?xml version=\"1.0\"?><response><result name=\"response\" numFound=\"" +
           std::to_string(count) + "\" start=\"0\">" + documents + "</result></response>";
}

/// The catalogue's files, and what its answers are at the moment.
class Catalogue {
  public:
    Catalogue(const std::string& announced, const std::string& plainUrl)
        : downloads_(downloads(plainUrl)), announced_(announced, std::ios::app) {
        for (const auto& [name, download] : downloads_) files_.push_back(name + ".nvi");
        for (const std::string& name : faults::hostilePackageNames())
            files_.push_back(name + ".nvz");
    }

    const std::vector<std::string>& files() const { return files_; }

    /// Writes the files to begin with.
    void writeTo(const std::string& folder) {
        offer();
        for (const auto& [file, bytes] : offered_) {
            nv::test::writeFile(folder + "/" + file, bytes);
        }
    }

    void become(const std::string& what) {
        const std::lock_guard lock(mutex_);
        what_ = what;
    }

    void select(Connection& connection) {
        const std::string what = current();
        if (what == "good" || what == "few" || what == "bad_files")
            return connection.answer(200, offer());
        const auto found = answers().find(what);
        if (found == answers().end()) return connection.answer(400, "no such behaviour: " + what);
        found->second(connection, *this);
    }

    Bytes offered(const std::string& file) {
        const std::lock_guard lock(mutex_);
        return offered_[file];
    }

    void download(Connection& connection, const Request& request, const std::string& file) {
        const Bytes bytes = offered(file);
        const std::string stem = file.substr(0, file.rfind('.'));
        const auto found = downloads_.find(current() == "bad_files" ? stem : "good");
        (found == downloads_.end() ? downloads_["good"] : found->second)(connection, request,
                                                                         bytes);
    }

  private:
    using Answer = std::function<void(Connection&, Catalogue&)>;
    static const std::map<std::string, Answer>& answers();

    std::string current() {
        const std::lock_guard lock(mutex_);
        return what_;
    }

    /// Every file in its next version.
    std::string offer() {
        const std::lock_guard lock(mutex_);
        ++version_;
        std::string documents;
        std::size_t count = 0;
        for (const std::string& file : files_) {
            const std::string stem = file.substr(0, file.rfind('.'));
            if (what_ == "few" && !kFew.count(stem)) continue;
            ++count;
            Bytes& bytes = offered_[file];
            if (file.ends_with(".nvi")) {
                bytes = goodDriver(version_);
            } else {
                bytes = what_ != "bad_files" ? faults::goodPackage(version_)
                                             : faults::hostilePackage(stem, version_);
            }
            const std::string md5 = faults::md5Of(bytes);
            announced_ << md5 << "  " << file << std::endl;
            documents += document(file, version_, md5);
        }
        return answerOf(count, documents);
    }

    std::map<std::string, Download> downloads_;
    std::vector<std::string> files_;
    std::ofstream announced_;
    std::mutex mutex_;
    std::string what_ = "good";
    int version_ = 0;
    std::map<std::string, Bytes> offered_;
};

/// As they stand in an answer, and as the path of a download.
const std::vector<std::pair<std::string, std::string>>& hostileNames() {
    static const std::string kLong(5000, 'n');
    static const std::string kTooLong(247, 'n');  // for what unpacking puts to it
    static const std::vector<std::pair<std::string, std::string>> names = {
        {"../climbs.nvi", "..%2Fclimbs.nvi"},
        {"../climbs.nvz", "..%2Fclimbs.nvz"},
        {"/tmp/root.nvi", "%2Ftmp%2Froot.nvi"},
        {"a&quot;b.nvi", "a%22b.nvi"},
        {"a&#10;b.nvi", "a%0Ab.nvi"},
        {".nvz", ".nvz"},
        {"..nvz", "..nvz"},
        {"b.nvz.nvz", "b.nvz.nvz"},
        {kLong + ".nvi", kLong + ".nvi"},
        {kTooLong + ".nvz", kTooLong + ".nvz"},
        {"$(touch planted).nvi", "%24%28touch%20planted%29.nvi"},
        {"`touch planted`.nvi", "%60touch%20planted%60.nvi"},
        {"", ""}};
    return names;
}

/// What is behind each of them is sound, so that the name alone can be the reason of a refusal.
const Bytes& behindHostileName(const std::string& name) {
    static const Bytes kPackage = faults::goodPackage(99);  // another one has another time in it
    static const Bytes kDriver = goodDriver(99);
    return name.ends_with(".nvz") ? kPackage : kDriver;
}

std::string hostileAnswer() {
    std::string documents;
    for (const auto& [name, path] : hostileNames()) {
        documents += document(name, 99, faults::md5Of(behindHostileName(name)));
    }
    return answerOf(hostileNames().size(), documents);
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    while (count-- != 0) all += text;
    return all;
}

const std::map<std::string, Catalogue::Answer>& Catalogue::answers() {
    const auto text = [](int status, std::string body, std::string headers = "") {
        return [=](Connection& c, Catalogue&) { c.answer(status, body, headers); };
    };
    static const std::map<std::string, Answer> all = {
        {"resets", [](Connection& c, Catalogue&) { c.cut(); }},
        {"truncates",
         [](Connection& c, Catalogue& self) {
             const std::string whole = self.offer();
             c.send(head(200, lengthOf(whole.size())) + whole.substr(0, whole.size() / 2));
             c.cut();
         }},
        {"stalls", [](Connection& c, Catalogue&) { c.hold(); }},
        {"status_404", text(404, "<html>no</html>")},
        {"status_429", text(429, "later", "Retry-After: 1\r\n")},
        {"status_500", text(500, "oh")},
        {"status_503", text(503, "later", "Retry-After: 1\r\n")},
        {"redirects", text(302, "", "Location: /elsewhere\r\n")},
        {"not_xml", text(200, "this is no catalogue")},
        {"empty", text(200, "")},
        {"no_result", text(200, "<response><lst/></response>")},
        {"cut_xml", text(200, "<response><result numFound=\"3\"><doc>")},
        {"wrong_count", text(200, answerOf(99, ""))},
        {"no_fields", text(200, answerOf(2, "<doc/><doc><str>x</str></doc>"))},
        {"capital_md5",
         [](Connection& c, Catalogue& self) {
             std::string md5 = faults::md5Of(self.offered("good.nvi"));
             for (char& digit : md5) digit = static_cast<char>(std::toupper(digit));
             c.answer(200, answerOf(1, document("good.nvi", 1000000, md5)));
         }},
        {"fields_twice",
         [](Connection& c, Catalogue& self) {
             const std::string twice =
                 "<doc>" + field("filename", "nobody.nvi") + field("filename", "good.nvi") +
                 field("version", "1") + field("version", "1000000") + field("md5sum", "none") +
                 field("md5sum", faults::md5Of(self.offered("good.nvi"))) + "</doc>";
             c.answer(200, answerOf(1, twice));
         }},
        {"no_md5", text(200, answerOf(1, document("good.nvi", 1000000, "")))},
        {"hostile_names", text(200, hostileAnswer())},
        {"nested", text(200, repeated("<a>", 100000) + repeated("</a>", 100000))},
        {"too_large", text(200, answerOf(1, std::string(70u << 20, ' ')))},
    };
    return all;
}

void printReady(const std::vector<LoopbackServer*>& servers) {
    std::printf("ready");
    for (const LoopbackServer* server : servers) std::printf(" %s", server->url("").c_str());
    std::printf("\n");
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // it ends with whoever started it
    if (argc != 2) {
        std::fprintf(stderr, "usage: misbehaving_server FOLDER\n");
        return 64;
    }
    const std::string folder = argv[1];
    const std::string here = "IP:127.0.0.1";
    constexpr int kYesterday = -1;
    const nv::test::TestAuthority authority;
    const nv::test::TestAuthority unknown("Nobody's authority");
    nv::test::writeFile(folder + "/ca.pem", authority.pem());

    LoopbackServer plain;
    Catalogue catalogue(folder + "/announced", plain.url("/to_plain_http.nvi"));
    catalogue.writeTo(folder + "/first");
    LoopbackServer good(authority.issue(here));
    LoopbackServer expired(authority.issue(here, kYesterday));
    LoopbackServer selfSigned(unknown.self());
    LoopbackServer otherHost(authority.issue("DNS:catalogue.example"));
    LoopbackServer stranger(unknown.issue(here));
    const std::vector<LoopbackServer*> servers = {&good, &expired, &selfSigned, &otherHost,
                                                  &stranger};
    std::vector<LoopbackServer*> all = servers;
    all.push_back(&plain);
    for (LoopbackServer* server : all) {
        server->on("/now", [&](Connection& connection, const Request& request) {
            catalogue.become(request.target.substr(request.target.find('?') + 1));
            connection.answer(200, "");
        });
        server->on("/drivers/select",
                   [&](Connection& connection, const Request&) { catalogue.select(connection); });
        for (const std::string& file : catalogue.files()) {
            server->on("/" + file, [&, file](Connection& connection, const Request& request) {
                catalogue.download(connection, request, file);
            });
        }
    }
    for (const auto& [name, path] : hostileNames()) {
        good.on("/" + path,
                [bytes = behindHostileName(name)](Connection& connection, const Request&) {
                    connection.answer(200, bytes);
                });
    }
    printReady(servers);
    for (;;) ::pause();
}
