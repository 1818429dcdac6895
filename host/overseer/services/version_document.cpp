#include "services/version_document.h"

#include <fmt/format.h>
#include <nv/version.h>

#include <pugixml.hpp>
#include <sstream>

namespace overseer {
namespace {

void add(pugi::xml_node versions, const std::string& name, const std::string& version) {
    pugi::xml_node entry = versions.append_child("version");
    entry.append_attribute("name").set_value(name.c_str());
    entry.append_attribute("version").set_value(version.c_str());
}

}  // namespace

std::string versionDocument(const std::string& version,
                            const std::map<std::string, std::string>& others) {
    pugi::xml_document document;
    pugi::xml_node versions = document.append_child("versions");
    add(versions, "Overseer", version);
    for (const auto& [name, otherVersion] : others) add(versions, name, otherVersion);
    std::ostringstream text;
    versions.print(text, "", pugi::format_raw);
    return text.str();
}

std::string hostVersion() {
    return fmt::format("{}.{}.{}", nv::version::get_major_version(),
                       nv::version::get_minor_version(), nv::version::get_build_number());
}

}  // namespace overseer
