// How long evaluations take, as ratios to the least that they are made of, in one run:
//   short cut   1,000 offers whose copies are current; against hashing the packages in-process and
//               parsing both manifests four times each
//   unpacking   one package, small and large; against the tool alone, and removing the old copy
#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/evp.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"
#include "package_builder.h"

namespace {

namespace fs = boost::filesystem;
using support::AgentSession;

constexpr int kOffers = 1000;
constexpr std::size_t kSmallPackage = 220U << 10;
constexpr std::size_t kLargePackage = 20U << 20;

std::string manifestText() {
    std::string text = "<devicedata><copyright>None</copyright><version>12</version><proxies>\n";
    for (int i = 0; i < 6; ++i) {
        text += fmt::format(
            "  <proxy proxybindingid=\"{0}\" name=\"Light {0}\" image=\"l{0}.gif\">light</proxy>\n",
            5000 + i);
    }
    text += "</proxies><capabilities>\n";
    for (int i = 0; i < 40; ++i) text += fmt::format("  <capability_{0}>{0}</capability_{0}>\n", i);
    text += "</capabilities><config>\n";
    for (int i = 0; i < 60; ++i) {
        text += fmt::format(
            "  <property><name>Property {0}</name><type>STRING</type><default>{0}</default>"
            "<readonly>false</readonly></property>\n",
            i);
    }
    return text + "</config></devicedata>";
}

/// Content that a compressor cannot shrink, so that a package is as large as it is said to be.
std::string noise(std::size_t size) {
    std::mt19937_64 random(42);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

/// A package of about that size, of a manifest and ten other members.
std::string packageBytes(std::size_t size) {
    support::PackageBuilder builder;
    builder.member("driver.xml", manifestText());
    for (int i = 0; i < 10; ++i) builder.member(fmt::format("media/{}.png", i), noise(size / 10));
    return builder.bytes();
}

double millisecondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

/// Runs both by turns, so that whatever else the machine does falls on both, and compares medians.
bool compare(const char* name, int rounds, double bound, const std::function<void()>& ours,
             const std::function<void()>& peer) {
    std::vector<double> oursTimes;
    std::vector<double> peerTimes;
    ours();
    peer();
    for (int round = 0; round < rounds; ++round) {
        oursTimes.push_back(millisecondsOf(ours));
        peerTimes.push_back(millisecondsOf(peer));
    }
    const auto median = [](std::vector<double>& times) {
        std::sort(times.begin(), times.end());
        return times[times.size() / 2];
    };
    const double ratio = median(oursTimes) / median(peerTimes);
    fmt::print(stderr, "{}: {:.2f} ms, peer {:.2f} ms\n", name, median(oursTimes),
               median(peerTimes));
    fmt::print("{}\t{:.3f}\t{:.2f}\t{}\n", name, ratio, bound,
               ratio <= bound ? "kept" : "NOT REACHED");
    return ratio <= bound;
}

void hashFile(const std::string& path) {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                          EVP_MD_CTX_free);
    EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr);
    std::vector<char> piece(128U << 10);
    std::ifstream file(path, std::ios::binary);
    while (file.read(piece.data(), static_cast<std::streamsize>(piece.size())) ||
           file.gcount() > 0) {
        EVP_DigestUpdate(context.get(), piece.data(), static_cast<std::size_t>(file.gcount()));
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(context.get(), digest, &length);
}

void parse(const std::string& text) {
    pugi::xml_document document;
    if (!document.load_buffer(text.data(), text.size())) throw std::runtime_error("not parsed");
}

bool measureShortCut() {
    AgentSession session;
    session.start();
    session.log.setLevel(log4cplus::WARN_LOG_LEVEL);
    const std::string bytes = packageBytes(kSmallPackage);
    const std::string digest = support::md5Of(bytes);
    const std::string manifest = manifestText();
    const fs::path folder = session.host.packagedFolder;

    std::vector<std::string> packages;
    const nv::XmlNode::Ptr offers = nv::CreateXmlNode("files", "");
    for (int i = 0; i < kOffers; ++i) {
        const std::string stem = fmt::format("driver_{}", i);
        packages.push_back((folder / (stem + ".nvz")).string());
        support::writeFile(packages.back(), bytes);
        fs::create_directory(folder / stem);
        support::writeFile(folder / stem / "driver.xml", manifest);
        support::writeFile(folder / stem / (stem + ".nvz.md5"), digest);
        session.host.deviceIds[stem + ".nvz"] = {1};
        const nv::XmlNode::Ptr item = offers->AddChild("file", "");
        item->AddChild("cur_driver_file", stem + ".nvz");
        item->AddChild("new_driver_file", stem + ".nvz");
        item->AddChild("new_driver_xml", manifest);
    }
    const std::string command = offers->ToText();

    return compare(
        "evaluation: short cut, 1,000 offers", 5, 1.3,
        [&] {
            const nv::XmlNode::Ptr answer =
                session.ask("EVALUATE_DRIVER", {{"cur_driver_files", command}});
            if (answer->GetChildCount() != kOffers) throw std::runtime_error("verdicts missing");
            session.journal.take();
        },
        [&] {
            for (const std::string& package : packages) {
                hashFile(package);
                for (int time = 0; time < 4; ++time) {
                    parse(manifest);
                    parse(manifest);
                }
            }
        });
}

/// The tool alone, as a shell script would do it: into a fresh folder that then takes the place of
/// the old copy.
void unzipAlone(const std::string& package, const fs::path& copy) {
    const std::string staging = copy.string() + ".new";
    fs::create_directory(staging);
    const std::string output = staging + "/unzip.out";
    const char* const words[] = {"unzip", package.c_str(), "-d", staging.c_str(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t child = 0;
    const int error =
        posix_spawnp(&child, "unzip", &actions, nullptr, const_cast<char* const*>(words), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (error != 0 || waitpid(child, &status, 0) != child || status != 0) {
        throw std::runtime_error("unzip failed");
    }
    fs::remove_all(copy);
    fs::rename(staging, copy);
}

bool measureUnpacking(const char* name, std::size_t size, int rounds, double bound) {
    AgentSession session;
    session.start();
    session.log.setLevel(log4cplus::WARN_LOG_LEVEL);
    const fs::path folder = session.host.packagedFolder;
    support::writeFile(folder / "ours.nvz", packageBytes(size));
    support::writeFile(session.root / "peer.nvz", packageBytes(size));
    session.host.deviceIds["ours.nvz"] = {1};
    const nv::XmlNode::Ptr offers = nv::CreateXmlNode("files", "");
    const nv::XmlNode::Ptr item = offers->AddChild("file", "");
    item->AddChild("cur_driver_file", "ours.nvz");
    item->AddChild("new_driver_file", "ours.nvz");
    item->AddChild("new_driver_xml", manifestText());
    const std::string command = offers->ToText();
    const std::string peer = (session.root / "peer.nvz").string();
    return compare(
        name, rounds, bound,
        [&] {
            session.ask("EVALUATE_DRIVER", {{"cur_driver_files", command}});
        },
        [&] { unzipAlone(peer, session.root / "peer"); });
}

}  // namespace

int main() {
    const bool results[] = {
        measureShortCut(),
        measureUnpacking("evaluation: unpacking, 220 KB", kSmallPackage, 101, 1.5),
        measureUnpacking("evaluation: unpacking, 20 MB", kLargePackage, 11, 1.15)};
    return std::all_of(std::begin(results), std::end(results), [](bool kept) { return kept; }) ? 0
                                                                                               : 1;
}
