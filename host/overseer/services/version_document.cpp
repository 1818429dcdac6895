#include "services/version_document.h"

#include <fmt/format.h>
#include <nv/version.h>

#include <pugixml.hpp>
#include <sstream>

namespace overseer {
std::string versionDocument(const std::string& version) {
    pugi::xml_document document;
    pugi::xml_node versions = document.append_child("versions");
    pugi::xml_node host = versions.append_child("version");
    host.append_attribute("name").set_value("Overseer");
    host.append_attribute("version").set_value(version.c_str());
    std::ostringstream text;
    versions.print(text, "", pugi::format_raw);
    return text.str();
}

std::string hostVersion() {
    return fmt::format("{}.{}.{}", nv::version::get_major_version(),
                       nv::version::get_minor_version(), nv::version::get_build_number());
}

}  // namespace overseer
