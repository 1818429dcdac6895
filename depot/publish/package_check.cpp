// Everything about a package that its author can know before it is published.
#include "depot/publish/package_check.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "depot/package_reader.h"
#include "depot/publish/archive_check.h"
#include "depot/publish/name_check.h"
#include "depot/sidecar.h"

namespace depot {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestText = 32766;  // of an indexed text, in bytes
constexpr std::size_t kMostDigits = 9;

bool isNumber(std::string_view part) {
    return !part.empty() && part.size() <= kMostDigits &&
           part.find_first_not_of("0123456789") == std::string_view::npos;
}

void checkMinimumSystem(const std::string& minimum, bool agent, FindingList& findings) {
    std::size_t parts = 0;
    for (std::string_view rest = minimum;; ++parts) {
        const std::size_t dot = rest.find('.');
        if (!isNumber(rest.substr(0, dot)))
            return findings.error("minimumOSVersion \"" + minimum +
                                  "\" is not made of numbers and dots, as in \"3.2.0\"");
        if (dot == std::string_view::npos) break;
        rest.remove_prefix(dot + 1);
    }
    ++parts;
    if (parts < 3)
        findings.warning("minimumOSVersion \"" + minimum + "\" has fewer than three numbers" +
                         (agent ? ": an agent is then added whatever the system" : ""));
    if (parts > 3)
        findings.warning("minimumOSVersion \"" + minimum +
                         "\" has more than three numbers; only the first three count");
}

void checkVersions(const Document& document, Findings& findings) {
    FindingList version(findings, document.filename, "version");
    if (document.version <= 0)
        version.error("the version is " + std::to_string(document.version) +
                      ": it must begin with a number from 1 to 2147483647");
    FindingList minimum(findings, document.filename, "minimum");
    if (document.minimumAutoUpdateVersion && *document.minimumAutoUpdateVersion >= document.version)
        minimum.error("minimumAutoUpdateVersion " +
                      std::to_string(*document.minimumAutoUpdateVersion) +
                      " is not below the version " + std::to_string(document.version) +
                      ": no controller could be updated");
    if (document.minimumOSVersion)
        checkMinimumSystem(*document.minimumOSVersion, document.agent, minimum);
}

void checkReach(const Document& document, Findings& findings) {
    FindingList name(findings, document.filename, "name");
    checkName(document, name);
    FindingList reach(findings, document.filename, "reach");
    if (document.agent && !document.autoUpdate)
        reach.error(
            "is an agent with autoUpdate false: controllers look agents up by a query "
            "that is not forced, and it does not find this one");
    else if (document.agent && !hasErrors(findings))
        checkAgentLookup(document, reach);
    if (!document.autoUpdate && !document.forceAutoUpdate)
        reach.warning("autoUpdate and forceAutoUpdate are false: no controller is offered it");
}

void checkTexts(const Document& document, FindingList& findings) {
    for (const auto& [field, text] :
         {std::pair{"name", &document.name}, std::pair{"model", &document.model},
          std::pair{"manufacturer", &document.manufacturer}}) {
        if (*text && (*text)->size() > kLongestText)
            findings.error(std::string("its ") + field + " is longer than 32766 bytes");
    }
}

std::optional<Document> readDocument(const std::string& path, const std::string& filename,
                                     Findings& findings) {
    auto document = readPackage(path, filename);
    if (!document) {
        FindingList(findings, filename, "package").error(document.error().message);
        return std::nullopt;
    }
    const std::string suffix(kSidecarSuffix);
    if (const auto read = readSidecarFile(path + suffix, *document); !read) {
        FindingList(findings, filename, "sidecar")
            .error(filename + suffix + ": " + read.error().message);
    }
    return std::move(*document);
}

bool isPackageFile(const fs::path& path) {
    const std::string name = path.filename().string();
    return name.ends_with(".nvz") || name.ends_with(".nvi");
}

}  // namespace

CheckedPackage checkPackage(const std::string& path) {
    CheckedPackage checked;
    checked.path = path;
    checked.filename = fs::path(path).filename().string();
    Findings& findings = checked.findings;
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        FindingList(findings, checked.filename, "package").error("is not a regular file");
        return checked;
    }
    checked.document = readDocument(path, checked.filename, findings);
    if (checked.filename.ends_with(".nvz")) {
        FindingList archive(findings, checked.filename, "archive");
        checkArchive(path, archive);
    }
    if (checked.document) {
        FindingList texts(findings, checked.filename, "package");
        checkTexts(*checked.document, texts);
        checkVersions(*checked.document, findings);
        checkReach(*checked.document, findings);
    } else {
        Document unread;
        unread.filename = checked.filename;
        FindingList name(findings, checked.filename, "name");
        checkName(unread, name);
    }
    return checked;
}

bool anyErrors(const std::vector<CheckedPackage>& packages) {
    return std::any_of(packages.begin(), packages.end(), [](const CheckedPackage& package) {
        return !package.document || hasErrors(package.findings);
    });
}

Result<std::vector<std::string>> packagesAt(const std::string& path) {
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        if (!fs::exists(path, error)) return failure(path + ": is not there");
        if (!isPackageFile(path)) return failure(path + ": is no package (.nvz or .nvi)");
        return std::vector<std::string>{path};
    }
    std::vector<std::string> packages;
    fs::directory_iterator entries(path, error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
        const fs::path& entry = entries->path();
        std::error_code ignored;
        const bool hidden = entry.filename().string().front() == '.';
        if (!hidden && isPackageFile(entry) && !entries->is_directory(ignored))
            packages.push_back(entry.string());
    }
    if (error) return failure(path + ": cannot be listed: " + error.message());
    if (packages.empty()) return failure(path + ": holds no package (.nvz or .nvi)");
    std::sort(packages.begin(), packages.end());
    return packages;
}

}  // namespace depot
