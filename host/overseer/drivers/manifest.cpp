#include "drivers/manifest.h"

#include <limits>
#include <pugixml.hpp>

#include "drivers/file_names.h"
#include "drivers/package.h"
#include "root/file_text.h"

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

    // As agents and catalogues read it; where that does not fit they would take it for a version
    // below all others, and nothing newer could ever replace it.
    const unsigned int number = version.as_uint();
    if (number > static_cast<unsigned int>(std::numeric_limits<int>::max())) {
        return failure("the manifest of {} names a version that is too large", source);
    }

    Manifest manifest;
    manifest.version = static_cast<int>(number);
    manifest.name = root.child("name").text().get();
    manifest.model = root.child("model").text().get();
    manifest.manufacturer = root.child("manufacturer").text().get();
    manifest.agent = root.child("agent").text().as_bool();
    manifest.library = root.child("library").text().get();
    return manifest;
}

Result<std::string> readManifestText(const boost::filesystem::path& file, const std::string& name) {
    if (isPackageName(name)) {
        const Result<Package> package = Package::open(file);
        if (!package) return tl::unexpected<Error>(package.error());
        return package->manifestText();
    }
    return readText(file);
}

}  // namespace overseer
