#include "state/agent_copies.h"

#include <fcntl.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <pugixml.hpp>

#include "root/placement.h"

namespace overseer::agent_copies {
namespace {

namespace fs = boost::filesystem;

constexpr const char* kSuffix = ".xml";
/// A persisted node is settings, not data; what is longer is no copy of ours.
constexpr std::uintmax_t kLongestCopy = 16u << 20;

bool standsAsItIs(char byte, bool first) {
    const bool letterOrDigit = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                               (byte >= '0' && byte <= '9');
    return letterOrDigit || byte == '_' || byte == '-' || (byte == '.' && !first);
}

std::string fileNameOf(const std::string& agent) {
    std::string name;
    for (const char byte : agent) {
        if (standsAsItIs(byte, name.empty()))
            name += byte;
        else
            name += fmt::format("%{:02X}", static_cast<unsigned char>(byte));
    }
    return name + kSuffix;
}

int hexadecimalDigit(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

/// Nothing for a file name that `fileNameOf` does not make.
std::optional<std::string> agentOf(const std::string& fileName) {
    if (!fileName.ends_with(kSuffix)) return std::nullopt;
    const std::string stem = fileName.substr(0, fileName.size() - std::strlen(kSuffix));
    std::string agent;
    for (std::size_t at = 0; at < stem.size(); ++at) {
        if (stem[at] != '%') {
            agent += stem[at];
            continue;
        }
        const int high = at + 2 < stem.size() ? hexadecimalDigit(stem[at + 1]) : -1;
        const int low = at + 2 < stem.size() ? hexadecimalDigit(stem[at + 2]) : -1;
        if (high < 0 || low < 0) return std::nullopt;
        agent += static_cast<char>(high * 16 + low);
        at += 2;
    }
    return fileNameOf(agent) == fileName ? std::optional(agent) : std::nullopt;
}

std::optional<std::string> readWellFormed(const fs::path& file) {
    boost::system::error_code error;
    if (!fs::is_regular_file(fs::symlink_status(file, error)) || error) return std::nullopt;
    const std::uintmax_t size = fs::file_size(file, error);
    if (error || size > kLongestCopy) return std::nullopt;
    std::ifstream input(file.c_str(), std::ios::binary);
    std::string xml((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
    pugi::xml_document document;
    if (!input || !document.load_buffer(xml.data(), xml.size())) return std::nullopt;
    return xml;
}

}  // namespace

Result<> write(const fs::path& folder, const std::string& agent, const std::string& xml) {
    boost::system::error_code error;
    fs::create_directories(folder, error);
    if (error) return failure("cannot make the folder {}: {}", folder.string(), error.message());
    Result<> written = writeInPlace(folder / fileNameOf(agent), xml, Flush::kBefore);
    return written ? flushFolder(folder) : written;
}

std::map<std::string, std::string> readAll(const fs::path& folder) {
    std::map<std::string, std::string> copies;
    boost::system::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::optional<std::string> agent = agentOf(entry->path().filename().string());
        if (!agent) continue;
        if (std::optional<std::string> xml = readWellFormed(entry->path())) copies[*agent] = *xml;
    }
    return copies;
}

}  // namespace overseer::agent_copies
