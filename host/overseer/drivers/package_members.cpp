// What the members of a package may be called, and where its links may point.

#include "drivers/package_members.h"

#include <algorithm>
#include <set>
#include <string_view>

namespace overseer {
namespace {

using Parts = std::vector<std::string_view>;

Parts partsOf(std::string_view path) {
    Parts parts;
    for (;;) {
        const std::size_t slash = path.find('/');
        parts.push_back(path.substr(0, slash));
        if (slash == std::string_view::npos) return parts;
        path.remove_prefix(slash + 1);
    }
}

bool isPlainName(const Parts& parts) {
    return std::none_of(parts.begin(), parts.end(), [](std::string_view part) {
        return part.empty() || part == "." || part == "..";
    });
}

/// A way up is allowed only in front: behind a name it could start from where another link leads.
bool staysInside(const PackageMember& link) {
    if (link.linkTarget.empty() || link.linkTarget.find('\0') != std::string::npos) return false;
    Parts way = partsOf(link.linkTarget);
    if (way.back().empty() && way.size() > 1) way.pop_back();
    const auto firstName =
        std::find_if(way.begin(), way.end(), [](std::string_view part) { return part != ".."; });
    const auto levelsUp = static_cast<std::size_t>(firstName - way.begin());
    const std::size_t depth = partsOf(link.name).size() - 1;
    return levelsUp <= depth && isPlainName(Parts(firstName, way.end()));
}

}  // namespace

Result<> checkMembers(const std::vector<PackageMember>& members) {
    std::set<std::string_view> contents;  // files and links
    std::set<std::string_view> folders;
    for (const PackageMember& member : members) {
        if (!isPlainName(partsOf(member.name))) {
            return failure("the member \"{}\" does not stay in its folder", member.name);
        }
        if (member.kind == PackageMember::Kind::kLink && !staysInside(member)) {
            return failure("the link \"{}\" leaves its folder", member.name);
        }
        const std::string_view name = member.name;
        if (member.kind == PackageMember::Kind::kFolder) {
            folders.insert(name);
        } else if (!contents.insert(name).second) {
            return failure("the member \"{}\" is there twice", member.name);
        }
        for (std::size_t slash = 0; (slash = name.find('/', slash)) != std::string_view::npos;) {
            folders.insert(name.substr(0, slash++));
        }
    }
    for (const std::string_view folder : folders) {
        if (contents.count(folder) == 0) continue;
        return failure("the member \"{}\" is both a folder and none", folder);
    }
    return {};
}

}  // namespace overseer
