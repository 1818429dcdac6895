// Asks a catalogue what controllers ask, over connections that are kept open, and measures how long
// the answers take. Each controller has its own drivers, drawn from the catalogue's; each query is
// one batch of them.
#include <curl/curl.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::string base;
    std::string caFile;
    std::string prefix = "driver_";
    int packages = 5000;
    int drivers = 60;
    int controllers = 2000;
    int connections = 4;
    double seconds = 5;
    double rate = 0;  ///< requests per second in all; 0 as fast as answers come
    bool oneVersion = false;
};

struct Tally {
    std::vector<double> milliseconds;
    long failed = 0;
    long mixed = 0;
    std::set<std::string> versions;
    std::string firstFailure;
};

volatile sig_atomic_t stopRequested = 0;

std::string nameOf(const Options& options, int number) {
    return options.prefix + std::to_string(100000 + number) + ".nvi";
}

/// The batches of one controller, each at most 1800 characters, as in a daily run.
std::vector<std::string> batchesOf(const Options& options, unsigned controller) {
    std::mt19937 random(controller);
    std::set<std::string> names;
    while (names.size() < static_cast<std::size_t>(options.drivers))
        names.insert(
            nameOf(options, static_cast<int>(random() % static_cast<unsigned>(options.packages))));
    constexpr std::size_t kLongest = 1800;
    constexpr std::size_t kJoint = 3;
    std::vector<std::string> batches;
    std::string batch;
    std::size_t length = 0;
    for (const std::string& name : names) {
        if (length > 0 && length + name.size() + kJoint > kLongest) {
            batches.push_back(batch);
            batch.clear();
            length = 0;
        }
        batch += (length > 0 ? ",%22" : "%22") + name + "%22";
        length += name.size() + (length > 0 ? kJoint : 2);
    }
    batches.push_back(batch);
    for (std::string& each : batches)
        each = options.base + "/drivers/select?q=*:*&fq=filename:(IN+" + each +
               ")+AND+autoUpdate:%22true%22&fl=filename,version,name,model,manufacturer,md5sum"
               "&wt=xml&indent=true&rows=100000";
    return batches;
}

std::size_t take(char* data, std::size_t, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, count);
    return count;
}

/// The versions that an answer names.
std::set<std::string> versionsIn(const std::string& body) {
    static const std::string kField = "<int name=\"version\">";
    std::set<std::string> versions;
    for (std::size_t at = body.find(kField); at != std::string::npos;
         at = body.find(kField, at + 1)) {
        const std::size_t begin = at + kField.size();
        versions.insert(body.substr(begin, body.find('<', begin) - begin));
    }
    return versions;
}

/// One connection's worth of work.
Tally ask(const Options& options, const std::vector<std::string>& urls, int connection,
          Clock::time_point begin) {
    Tally tally;
    const std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), &curl_easy_cleanup);
    const auto end = begin + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(options.seconds));
    const auto pause =
        std::chrono::duration<double>(options.rate > 0 ? options.connections / options.rate : 0);
    std::string body;
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &take);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &body);
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, 20L);
    curl_easy_setopt(curl.get(), CURLOPT_PROXY, "");
    if (!options.caFile.empty())
        curl_easy_setopt(curl.get(), CURLOPT_CAINFO, options.caFile.c_str());
    std::size_t at = static_cast<std::size_t>(connection) * 7919;
    for (int round = 0; Clock::now() < end && stopRequested == 0; ++round, ++at) {
        if (options.rate > 0)
            std::this_thread::sleep_until(
                begin + std::chrono::duration_cast<Clock::duration>(pause * round));
        body.clear();
        curl_easy_setopt(curl.get(), CURLOPT_URL, urls[at % urls.size()].c_str());
        const auto sent = Clock::now();
        const CURLcode code = curl_easy_perform(curl.get());
        tally.milliseconds.push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - sent).count());
        long status = 0;
        curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
        if (code != CURLE_OK || status != 200 || body.find("numFound=\"") == std::string::npos) {
            if (tally.failed++ == 0)
                tally.firstFailure =
                    curl_easy_strerror(code) + std::string(", status ") + std::to_string(status);
            continue;
        }
        if (!options.oneVersion) continue;
        const auto versions = versionsIn(body);
        tally.mixed += versions.size() != 1;
        tally.versions.insert(versions.begin(), versions.end());
    }
    return tally;
}

double percentile(const std::vector<double>& sorted, double part) {
    if (sorted.empty()) return 0;
    const auto at = static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1));
    return sorted[at];
}

void print(const Tally& all, double seconds) {
    std::vector<double> sorted = all.milliseconds;
    std::sort(sorted.begin(), sorted.end());
    std::string versions;
    for (const std::string& version : all.versions)
        versions += (versions.empty() ? "" : ",") + version;
    std::printf(
        "{\"requests\": %zu, \"perSecond\": %.0f, \"medianMilliseconds\": %.2f, "
        "\"p99Milliseconds\": %.2f, \"worstMilliseconds\": %.1f, \"failed\": %ld, \"mixed\": %ld, "
        "\"versions\": [%s], \"firstFailure\": \"%s\"}\n",
        sorted.size(), static_cast<double>(sorted.size()) / seconds, percentile(sorted, 0.5),
        percentile(sorted, 0.99), percentile(sorted, 1), all.failed, all.mixed, versions.c_str(),
        all.firstFailure.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Asks a catalogue as a fleet of controllers does, and prints figures as JSON."};
    app.add_option("BASE", options.base, "Base URL of the catalogue")->required();
    app.add_option("--ca", options.caFile, "Certificates to trust");
    app.add_option("--prefix", options.prefix, "Packages are PREFIX100000.nvi and up");
    app.add_option("--packages", options.packages, "How many packages the catalogue has");
    app.add_option("--drivers", options.drivers, "Drivers of one controller");
    app.add_option("--controllers", options.controllers, "How many controllers ask in turn");
    app.add_option("--connections", options.connections, "Connections that are kept open");
    app.add_option("--seconds", options.seconds, "How long, unless SIGTERM ends it before");
    app.add_option("--rate", options.rate, "Requests per second in all; 0 for as many as it takes");
    app.add_flag("--one-version", options.oneVersion,
                 "Count answers whose documents are not all of one version");
    CLI11_PARSE(app, argc, argv);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    ::signal(SIGTERM, [](int) { stopRequested = 1; });

    std::vector<std::string> urls;
    for (unsigned each = 0; each < static_cast<unsigned>(options.controllers); ++each) {
        for (std::string& url : batchesOf(options, each)) urls.push_back(std::move(url));
    }
    std::mutex mutex;
    Tally all;
    const auto begin = Clock::now();
    std::vector<std::thread> threads;
    for (int connection = 0; connection < options.connections; ++connection) {
        threads.emplace_back([&, connection] {
            const Tally tally = ask(options, urls, connection, begin);
            const std::lock_guard lock(mutex);
            all.milliseconds.insert(all.milliseconds.end(), tally.milliseconds.begin(),
                                    tally.milliseconds.end());
            all.failed += tally.failed;
            all.mixed += tally.mixed;
            all.versions.insert(tally.versions.begin(), tally.versions.end());
            if (all.firstFailure.empty()) all.firstFailure = tally.firstFailure;
        });
    }
    for (std::thread& thread : threads) thread.join();
    print(all, std::chrono::duration<double>(Clock::now() - begin).count());
    return all.failed == 0 && all.mixed == 0 ? 0 : 1;
}
