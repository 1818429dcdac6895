// GET_SETUP on a controller with 10,000 driver files, with the real programs, against the least
// that it is made of, in one run:
//   time    libcurl fetching the same queries over one kept-alive connection, plus 1.5 times
//   pugixml
//           parsing the answers and writing the listing
//   memory  the answers' size, and what answers and listing take in the peer; afterwards the
//           notifications, which the host keeps for replay
// usage: setup_bench FOLDER-OF-PROGRAMS SCRIPT-FOLDER [FILES]
#include <curl/curl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <pugixml.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = boost::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kRounds = 5;
constexpr std::size_t kLongestBatch = 1800;
constexpr double kParsingAllowance = 1.5;
constexpr double kAnswersAllowance = 8;
constexpr double kPeerAllowance = 1.3;
constexpr double kKeptAllowance = 1.5;

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void write(const fs::path& file, const std::string& text) {
    std::ofstream(file.string(), std::ios::binary) << text;
}

void shell(const std::string& command) {
    if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
}

/// A program that runs until the object goes; its first line says "ready".
class Program {
  public:
    Program(const std::vector<std::string>& words, const fs::path& output) {
        process_ = fork();
        if (process_ == 0) {
            if (std::freopen(output.c_str(), "w", stdout) == nullptr) _exit(127);
            std::vector<char*> arguments;
            for (const std::string& word : words) {
                arguments.push_back(const_cast<char*>(word.c_str()));
            }
            arguments.push_back(nullptr);
            execv(arguments[0], arguments.data());
            _exit(127);
        }
        awaitReady(output);
    }
    ~Program() {
        kill(process_, SIGTERM);
        waitpid(process_, nullptr, 0);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    const std::string& line() const { return line_; }
    /// A value of /proc/PID/status in bytes.
    double memory(const std::string& name) const {
        std::ifstream status(fmt::format("/proc/{}/status", process_));
        for (std::string line; std::getline(status, line);) {
            if (line.compare(0, name.size(), name) != 0) continue;
            return 1024.0 * std::stod(line.substr(name.size() + 1));
        }
        throw std::runtime_error("no " + name);
    }
    /// The peak counts from now on.
    void resetPeak() const { write(fmt::format("/proc/{}/clear_refs", process_), "5"); }

  private:
    void awaitReady(const fs::path& output) {
        for (int attempt = 0; attempt < 2400; ++attempt) {
            std::ifstream lines(output.string());
            while (std::getline(lines, line_)) {
                if (line_.compare(0, 5, "ready") == 0) return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        throw std::runtime_error(output.string() + " never says that it is ready");
    }

    pid_t process_ = -1;
    std::string line_;
};

std::size_t append(char* data, std::size_t, std::size_t size, void* text) {
    static_cast<std::string*>(text)->append(data, size);
    return size;
}

/// One connection that is kept alive.
class Connection {
  public:
    explicit Connection(const std::string& authorities, const std::string& socket = {}) {
        curl_easy_setopt(easy_.get(), CURLOPT_CAINFO, authorities.c_str());
        if (!socket.empty()) {
            curl_easy_setopt(easy_.get(), CURLOPT_UNIX_SOCKET_PATH, socket.c_str());
        }
        curl_easy_setopt(easy_.get(), CURLOPT_PROXY, "");
        curl_easy_setopt(easy_.get(), CURLOPT_WRITEFUNCTION, &append);
    }
    std::string get(const std::string& url) {
        curl_easy_setopt(easy_.get(), CURLOPT_HTTPGET, 1L);
        return perform(url);
    }
    std::string post(const std::string& url) {
        curl_easy_setopt(easy_.get(), CURLOPT_POSTFIELDS, "{}");
        return perform(url);
    }

  private:
    struct Cleanup {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };

    std::string perform(const std::string& url) {
        std::string body;
        curl_easy_setopt(easy_.get(), CURLOPT_URL, url.c_str());
        curl_easy_setopt(easy_.get(), CURLOPT_WRITEDATA, &body);
        const CURLcode code = curl_easy_perform(easy_.get());
        long status = 0;
        curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
        if (code != CURLE_OK || status >= 400) {
            throw std::runtime_error(fmt::format("{}: {} {}", url, curl_easy_strerror(code), body));
        }
        return body;
    }

    std::unique_ptr<CURL, Cleanup> easy_{curl_easy_init()};
};

/// A controller with that many bare drivers, and a catalogue with a newer version of each.
class World {
  public:
    World(const std::string& programs, const std::string& scripts, int files)
        : programs_(programs), folder_(fs::temp_directory_path() / fs::unique_path("setup-%%%%")) {
        fs::create_directories(folder_ / "catalogue");
        shell(fmt::format("{}/certificate {} >/dev/null 2>&1", scripts, (folder_ / "c").string()));
        shell(fmt::format("{}/overseer --root {} init --ca {} >/dev/null", programs, root(), ca()));
        std::string project = "<project><devices>\n";
        for (int number = 0; number < files; ++number) {
            names.push_back(fmt::format("driver_of_a_device_{:05}.nvi", number));
            write(folder_ / "catalogue" / names.back(), manifest(number, 2));
            write(fs::path(root()) / "drivers/plain" / names.back(), manifest(number, 1));
            project += fmt::format("<device id=\"{}\" file=\"{}\"/>\n", number + 1, names.back());
        }
        write(fs::path(root()) / "project.xml", project + "</devices></project>\n");
    }
    ~World() {
        boost::system::error_code ignored;
        fs::remove_all(folder_, ignored);
    }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    std::string root() const { return (folder_ / "controller").string(); }
    std::string ca() const { return (folder_ / "c/ca.pem").string(); }
    std::unique_ptr<Program> startDepot() const {
        return std::make_unique<Program>(
            std::vector<std::string>{programs_ + "/driver-depot", "serve",
                                     (folder_ / "catalogue").string(), "--port", "0", "--cert",
                                     (folder_ / "c/server.pem").string(), "--key",
                                     (folder_ / "c/server.key").string()},
            folder_ / "depot.out");
    }
    std::unique_ptr<Program> startHost(const std::string& catalogue) const {
        return std::make_unique<Program>(std::vector<std::string>{programs_ + "/overseer", "--root",
                                                                  root(), "--catalogue", catalogue},
                                         folder_ / "host.out");
    }

    std::vector<std::string> names;

  private:
    static std::string manifest(int number, int version) {
        return fmt::format(
            "<devicedata><name>Device {0}</name><model>M-{0}</model><manufacturer>Maker {1}"
            "</manufacturer><version>{2}</version></devicedata>\n",
            number, number % 40, version);
    }

    std::string programs_;
    fs::path folder_;
};

std::vector<std::string> queries(const std::string& catalogue,
                                 const std::vector<std::string>& names) {
    std::vector<std::string> urls;
    std::string list;
    const auto finish = [&] {
        urls.push_back(catalogue + "/drivers/select?q=*:*&fq=filename:(IN+" + list +
                       ")+AND+autoUpdate:%22true%22&fl=filename,version,name,model,manufacturer,"
                       "md5sum&wt=xml&indent=true&rows=100000");
        list.clear();
    };
    std::size_t length = 0;
    for (const std::string& name : names) {
        if (length + name.size() + 3 > kLongestBatch) {
            finish();
            length = 0;
        }
        length += name.size() + 3;
        list += (list.empty() ? "%22" : ",%22") + name + "%22";
    }
    finish();
    return urls;
}

/// What a plain program would make of the answers.
void buildListing(const std::vector<std::string>& answers, pugi::xml_document& listing) {
    pugi::xml_node drivers = listing.append_child("setup").append_child("drivers");
    for (const std::string& answer : answers) {
        pugi::xml_document document;
        document.load_buffer(answer.data(), answer.size());
        for (const pugi::xml_node each : document.document_element().child("result")) {
            pugi::xml_node driver = drivers.append_child("driver");
            driver.append_attribute("include").set_value(true);
            for (const pugi::xml_node field : each) {
                driver.append_child(field.attribute("name").value())
                    .text()
                    .set(field.child_value());
            }
        }
    }
}

std::string textOf(const pugi::xml_document& listing) {
    std::ostringstream text;
    listing.save(text, "", pugi::format_raw);
    return text.str();
}

double allocated() {
    const struct mallinfo2 now = mallinfo2();
    return static_cast<double>(now.uordblks + now.hblkhd);
}

struct Peer {
    double fetching = 0;   ///< seconds
    double listing = 0;    ///< seconds
    double answers = 0;    ///< bytes
    double footprint = 0;  ///< bytes of answers and listing together
    std::size_t text = 0;
};

Peer measurePeer(const std::vector<std::string>& urls, const std::string& ca) {
    std::vector<double> fetching;
    std::vector<double> listing;
    Peer peer;
    Connection connection(ca);
    for (int round = 0; round < kRounds; ++round) {
        const double before = allocated();
        auto begin = Clock::now();
        std::vector<std::string> answers;
        for (const std::string& url : urls) answers.push_back(connection.get(url));
        fetching.push_back(secondsSince(begin));
        begin = Clock::now();
        pugi::xml_document document;
        buildListing(answers, document);
        const double footprint = allocated() - before;
        peer.text = textOf(document).size();
        listing.push_back(secondsSince(begin));
        peer.footprint = footprint;
        peer.answers = 0;
        for (const std::string& answer : answers) {
            peer.answers += static_cast<double>(answer.size());
        }
    }
    peer.fetching = median(fetching);
    peer.listing = median(listing);
    return peer;
}

bool holds(const char* what, double value, double limit) {
    fmt::print("{}\t{:.3f}\t{:.2f}\t{}\n", what, value, limit,
               value <= limit ? "kept" : "NOT REACHED");
    return value <= limit;
}

int measure(const std::string& programs, const std::string& scripts, int files) {
    const World world(programs, scripts, files);
    const auto depot = world.startDepot();
    const std::size_t space = depot->line().find(' ', 6);
    const std::string catalogue = depot->line().substr(6, space - 6);
    const auto host = world.startHost(catalogue);
    Connection control(world.ca(), world.root() + "/run/overseer.sock");
    const std::string server = "http://overseer";

    std::vector<double> times;
    std::vector<double> kept;
    double peak = 0;
    const double idle = host->memory("VmRSS:");
    for (int round = 0; round < kRounds; ++round) {
        host->resetPeak();
        const auto begin = Clock::now();
        control.post(server + "/agents/Driver%20Update/commands/GET_SETUP");
        control.get(server + "/network?wait=idle&timeout=600");
        times.push_back(secondsSince(begin));
        if (round == 0) peak = host->memory("VmHWM:") - idle;
        kept.push_back(host->memory("VmRSS:") - idle);
    }
    const std::string page = control.get(server + "/notifications?from=0");
    if (page.find("<setup>") == std::string::npos) throw std::runtime_error("no listing came");

    const std::vector<std::string> urls = queries(catalogue, world.names);
    const Peer peer = measurePeer(urls, world.ca());
    constexpr double kMegabyte = 1 << 20;
    fmt::print(stderr, "{} files, {} queries, answers {:.1f} MB, listing {:.1f} MB\n", files,
               urls.size(), peer.answers / kMegabyte, static_cast<double>(peer.text) / kMegabyte);
    fmt::print(stderr, "GET_SETUP {:.3f} s; curl {:.3f} s, pugixml {:.3f} s\n", median(times),
               peer.fetching, peer.listing);
    fmt::print(stderr, "peak over idle {:.1f} MB, after {} listings {:.1f} MB; peer {:.1f} MB\n",
               peak / kMegabyte, kRounds, kept.back() / kMegabyte, peer.footprint / kMegabyte);
    bool all = holds("setup listing of 10,000: time / (curl + 1.5 x pugixml)",
                     median(times) / (peer.fetching + kParsingAllowance * peer.listing), 1);
    all = holds("setup listing of 10,000: peak memory / answers", peak / peer.answers,
                kAnswersAllowance) &&
          all;
    all = holds("setup listing of 10,000: peak memory / peer's", peak / peer.footprint,
                kPeerAllowance) &&
          all;
    const double texts = static_cast<double>(kRounds * peer.text);
    all = holds("setup listing of 10,000: kept / notifications kept", kept.back() / texts,
                kKeptAllowance) &&
          all;
    return all ? 0 : 1;
}

}  // namespace

int main(int count, char** values) {
    if (count < 3) {
        fmt::print(stderr, "usage: setup_bench FOLDER-OF-PROGRAMS SCRIPT-FOLDER [FILES]\n");
        return 64;
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);
    try {
        return measure(values[1], values[2], count > 3 ? std::atoi(values[3]) : 10'000);
    } catch (const std::exception& error) {
        fmt::print(stderr, "setup_bench: {}\n", error.what());
        return 2;
    }
}
