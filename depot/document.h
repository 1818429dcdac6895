#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace depot {

/// What the catalogue says of one package file. Texts are UTF-8. Immutable once in a catalogue, so
/// threads share it.
struct Document {
    std::string filename;
    int version = 0;
    std::optional<std::string> name;
    std::optional<std::string> model;
    std::optional<std::string> manufacturer;
    std::string md5sum;  ///< 32 lower-case hexadecimal digits
    bool autoUpdate = true;
    bool forceAutoUpdate = false;
    std::optional<int> minimumAutoUpdateVersion;
    std::optional<std::string> minimumOSVersion;
    bool agent = false;  ///< stands in the core "agents" as well as in "drivers"
};

/// The two collections that are asked for.
enum class Core { kDrivers, kAgents };

/// The fields of a document, in the order in which answers list them.
enum class Field {
    kFilename,
    kVersion,
    kName,
    kModel,
    kManufacturer,
    kMd5sum,
    kAutoUpdate,
    kForceAutoUpdate,
    kMinimumAutoUpdateVersion,
    kMinimumOSVersion,
};

enum class FieldType { kText, kInteger, kBoolean };

struct FieldDescription {
    Field field;
    std::string_view name;
    FieldType type;
};

inline constexpr std::array<FieldDescription, 10> kFields{{
    {Field::kFilename, "filename", FieldType::kText},
    {Field::kVersion, "version", FieldType::kInteger},
    {Field::kName, "name", FieldType::kText},
    {Field::kModel, "model", FieldType::kText},
    {Field::kManufacturer, "manufacturer", FieldType::kText},
    {Field::kMd5sum, "md5sum", FieldType::kText},
    {Field::kAutoUpdate, "autoUpdate", FieldType::kBoolean},
    {Field::kForceAutoUpdate, "forceAutoUpdate", FieldType::kBoolean},
    {Field::kMinimumAutoUpdateVersion, "minimumAutoUpdateVersion", FieldType::kInteger},
    {Field::kMinimumOSVersion, "minimumOSVersion", FieldType::kText},
}};

/// A field's value; the first alternative when the document has none. Texts point into the
/// document.
using FieldValue = std::variant<std::monostate, std::string_view, int, bool>;

/// The value of `field` in `document`.
FieldValue fieldValue(const Document& document, Field field);

/// The field of that name, or null. Names are case-sensitive.
const FieldDescription* findField(std::string_view name);

}  // namespace depot
