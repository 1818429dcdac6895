// What a controller would refuse, or worse, not refuse, when it unpacks a package.
#include "depot/publish/archive_check.h"

#include <sys/stat.h>
#include <zip.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

#include "depot/unicode.h"

namespace depot {
namespace {

constexpr zip_int64_t kMostMembers = 65'536;
constexpr std::uint64_t kLargestContent = 1U << 30;
constexpr std::uint64_t kLongestLink = 4096;
constexpr std::uint64_t kSmallMember = 1U << 20;
constexpr std::uint64_t kLargestRatio = 1000;
constexpr std::size_t kMostFindings = 20;

struct ZipClose {
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
struct ZipFileClose {
    void operator()(zip_file_t* file) const { zip_fclose(file); }
};

std::vector<std::string_view> partsOf(std::string_view path) {
    std::vector<std::string_view> parts;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        parts.push_back(path.substr(0, slash));
        path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    }
    return parts;
}

std::string inQuotes(std::string_view name) {
    std::string text = "member \"";
    for (const char character : name)
        text += static_cast<unsigned char>(character) < 0x20 || character == 0x7F ? '?' : character;
    return text + '"';
}

/// One archive while it is looked through.
class ArchiveCheck {
  public:
    ArchiveCheck(zip_t* archive, FindingList& findings) : archive_(archive), findings_(findings) {}

    void run() {
        const zip_int64_t count = zip_get_num_entries(archive_, 0);
        if (count > kMostMembers) {
            findings_.error("holds " + std::to_string(count) + " members; the limit is 65,536");
            return;
        }
        for (zip_int64_t index = 0; index < count && !stopped_; ++index)
            checkMember(static_cast<zip_uint64_t>(index));
        if (!stopped_) checkParents();
    }

  private:
    void error(std::string message) {
        findings_.error(std::move(message));
        stopped_ = ++reported_ >= kMostFindings;
    }

    void checkMember(zip_uint64_t index) {
        zip_stat_t status;
        if (zip_stat_index(archive_, index, 0, &status) != 0 ||
            (status.valid & ZIP_STAT_SIZE) == 0 || (status.valid & ZIP_STAT_NAME) == 0) {
            return error("member " + std::to_string(index) +
                         " cannot be read: " + zip_strerror(archive_));
        }
        std::string name = status.name;
        const bool folder = !name.empty() && name.back() == '/';
        if (!staysInside(name)) return error(inQuotes(name) + " would lie outside the folder");
        if (name.find('\\') != std::string::npos)
            return error(inQuotes(name) +
                         " holds a backslash, which not every unpacker takes alike");
        if (hasControlCharacter(name)) return error(inQuotes(name) + " holds a control character");
        if (folder) name.pop_back();
        if (!(folder ? folders_ : files_).insert(name).second && !folder)
            return error(inQuotes(name) + " is there twice");
        if (status.encryption_method != ZIP_EM_NONE)
            return error(inQuotes(name) + " is encrypted: a controller has no password");
        checkSize(name, status);
        if (!stopped_) checkContent(name, status, folder);
    }

    void checkSize(const std::string& name, const zip_stat_t& status) {
        if (status.size > kLargestContent - total_) {
            stopped_ = true;
            findings_.error("unpacks to more than 1 GB, which no controller takes");
            return;
        }
        total_ += status.size;
        const bool known = (status.valid & ZIP_STAT_COMP_SIZE) != 0;
        if (known && status.size >= kSmallMember && status.size / kLargestRatio > status.comp_size)
            error(inQuotes(name) + " unpacks to more than 1000 times its size");
    }

    void checkContent(const std::string& name, const zip_stat_t& status, bool folder) {
        zip_uint8_t system = 0;
        zip_uint32_t attributes = 0;
        zip_file_get_external_attributes(archive_, status.index, 0, &system, &attributes);
        const mode_t type = static_cast<mode_t>(attributes >> 16) & S_IFMT;
        const bool link = type == S_IFLNK;
        if (type != 0 && !link && type != (folder ? S_IFDIR : S_IFREG))
            return error(inQuotes(name) + " is neither file, folder nor link");
        if (link) links_.insert(name);
        std::string content;
        if (!readMember(name, status, link ? &content : nullptr)) return;
        if (link && (content.empty() || !linkStaysInside(name, content)))
            error(inQuotes(name) + " is a link that leaves the folder");
    }

    /// Reads a member to its end, where its checksum is compared.
    bool readMember(const std::string& name, const zip_stat_t& status, std::string* content) {
        if (content != nullptr && status.size > kLongestLink) {
            error(inQuotes(name) + " is a link of more than 4096 bytes");
            return false;
        }
        const std::unique_ptr<zip_file_t, ZipFileClose> file(
            zip_fopen_index(archive_, status.index, 0));
        if (!file) {
            error(inQuotes(name) + " cannot be unpacked: " + zip_strerror(archive_));
            return false;
        }
        std::uint64_t read = 0;
        while (true) {
            const zip_int64_t count = zip_fread(file.get(), piece_.data(), piece_.size());
            if (count == 0 && read == status.size) return true;
            if (count > 0) read += static_cast<std::uint64_t>(count);
            if (count <= 0 || read > status.size) {
                error(inQuotes(name) + " is damaged");
                return false;
            }
            if (content != nullptr) content->append(piece_.data(), static_cast<std::size_t>(count));
        }
    }

    /// No member may need a folder where another one is a file or a link.
    void checkParents() {
        for (const auto* names : {&files_, &folders_}) {
            for (const std::string& name : *names) {
                if (names == &folders_ && files_.count(name) != 0)
                    error(inQuotes(name) + " is both a file and a folder");
                for (std::size_t slash = name.find('/'); slash != std::string::npos && !stopped_;
                     slash = name.find('/', slash + 1)) {
                    const std::string parent = name.substr(0, slash);
                    if (links_.count(parent) != 0)
                        error(inQuotes(name) + " would be unpacked through the link " +
                              inQuotes(parent));
                    else if (files_.count(parent) != 0)
                        error(inQuotes(parent) + " is both a file and a folder");
                }
                if (stopped_) return;
            }
        }
    }

    zip_t* const archive_;
    FindingList& findings_;
    std::set<std::string> files_;
    std::set<std::string> folders_;
    std::set<std::string> links_;
    std::array<char, 64 * 1024> piece_{};
    std::uint64_t total_ = 0;
    std::size_t reported_ = 0;
    bool stopped_ = false;
};

}  // namespace

bool staysInside(const std::string& name) {
    if (name.empty() || name.front() == '/') return false;
    for (const std::string_view part : partsOf(name)) {
        if (part.empty() || part == "." || part == "..") return false;
    }
    return true;
}

bool linkStaysInside(const std::string& name, const std::string& target) {
    if (target.empty() || target.front() == '/' || target.find('\0') != std::string::npos)
        return false;
    std::size_t depth = partsOf(name).size() - 1;
    for (const std::string_view part : partsOf(target)) {
        if (part.empty() || part == ".") continue;
        if (part != "..") {
            ++depth;
        } else if (depth-- == 0) {
            return false;
        }
    }
    return true;
}

void checkArchive(const std::string& path, FindingList& findings) {
    int code = 0;
    const std::unique_ptr<zip_t, ZipClose> archive(zip_open(path.c_str(), ZIP_RDONLY, &code));
    if (!archive) return;  // whoever reads the manifest has said so
    auto check = std::make_unique<ArchiveCheck>(archive.get(), findings);
    check->run();
}

}  // namespace depot
