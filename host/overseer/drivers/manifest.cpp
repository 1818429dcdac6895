#include "drivers/manifest.h"

#include <pugixml.hpp>

namespace overseer {

Result<Manifest> parseManifest(const std::string& text, const std::string& source) {
    pugi::xml_document document;
    const pugi::xml_parse_result parsed = document.load_buffer(text.data(), text.size());
    if (!parsed) {
        return failure("the manifest of {} cannot be read: {} at byte {}", source,
                       parsed.description(), parsed.offset);
    }
    const pugi::xml_node root = document.document_element();
    const pugi::xml_text version = root.child("version").text();
    if (!version) return failure("the manifest of {} names no version", source);

    Manifest manifest;
    manifest.version = static_cast<int>(version.as_uint());
    manifest.name = root.child("name").text().get();
    manifest.model = root.child("model").text().get();
    manifest.manufacturer = root.child("manufacturer").text().get();
    manifest.agent = root.child("agent").text().as_bool();
    manifest.library = root.child("library").text().get();
    return manifest;
}

}  // namespace overseer
