#include "depot/document.h"

#include <algorithm>

namespace depot {
namespace {

FieldValue optionalText(const std::optional<std::string>& text) {
    if (!text) return std::monostate{};
    return std::string_view(*text);
}

}  // namespace

FieldValue fieldValue(const Document& document, Field field) {
    switch (field) {
        case Field::kFilename:
            return std::string_view(document.filename);
        case Field::kVersion:
            return document.version;
        case Field::kName:
            return optionalText(document.name);
        case Field::kModel:
            return optionalText(document.model);
        case Field::kManufacturer:
            return optionalText(document.manufacturer);
        case Field::kMd5sum:
            return std::string_view(document.md5sum);
        case Field::kAutoUpdate:
            return document.autoUpdate;
        case Field::kForceAutoUpdate:
            return document.forceAutoUpdate;
        case Field::kMinimumAutoUpdateVersion:
            if (!document.minimumAutoUpdateVersion) return std::monostate{};
            return *document.minimumAutoUpdateVersion;
        case Field::kMinimumOSVersion:
            return optionalText(document.minimumOSVersion);
    }
    return std::monostate{};
}

const FieldDescription* findField(std::string_view name) {
    const auto* found = std::find_if(kFields.begin(), kFields.end(),
                                     [&](const auto& each) { return each.name == name; });
    return found == kFields.end() ? nullptr : found;
}

}  // namespace depot
