#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "depot/document.h"
#include "depot/file_stamp.h"

namespace depot {

/// A document and the state of the file that it was read from.
struct CatalogueEntry {
    Document document;
    FileStamp stamp;
};

/// The catalogue at one moment: documents in ascending byte order of their file names. Immutable;
/// any thread.
class Snapshot {
  public:
    using Entry = std::shared_ptr<const CatalogueEntry>;

    Snapshot() = default;
    /// @param entries  ascending by file name, none of them null
    explicit Snapshot(std::vector<Entry> entries);

    std::size_t size() const { return entries_.size(); }
    const Document& document(std::size_t position) const { return entries_[position]->document; }

    /// The position of the document of that file name.
    std::optional<std::size_t> position(std::string_view filename) const;
    /// The entry of that file name, or null.
    Entry find(std::string_view filename) const;

  private:
    std::vector<Entry> entries_;
    std::unordered_map<std::string_view, std::size_t> positions_;  // views into entries_
};

}  // namespace depot
