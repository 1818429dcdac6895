#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "depot/query.h"
#include "depot/snapshot.h"

namespace depot {

/// The documents of one answer.
struct Selection {
    std::size_t found = 0;               ///< how many match in all
    std::size_t start = 0;               ///< how many of them were skipped
    std::vector<std::size_t> positions;  ///< those that are shown, as positions in the snapshot
};

/// Writes answers byte for byte as Solr's XML response writer does: the same order of attributes,
/// line breaks, two blanks per level (with `indent`), `<str>`, `<int>` and `<bool>` elements, only
/// `&`, `<` and `>` escaped, an empty text as an empty element.
class SolrXmlWriter {
  public:
    explicit SolrXmlWriter(bool indent) : indent_(indent) {}

    /// @param fields  the fields to write of each document, in this order; those that a document
    ///                does not have are left out
    std::string answer(const Snapshot& snapshot, const Selection& selection,
                       const std::vector<Field>& fields, long queryMilliseconds);

    std::string error(const QueryError& error, int status, long queryMilliseconds);

  private:
    void begin();
    std::string end();
    void lineBreak();
    void open(std::string_view tag, std::string_view name);
    void close(std::string_view tag);
    void header(int status, long queryMilliseconds);
    void document(const Document& document, const std::vector<Field>& fields);
    void text(std::string_view name, std::string_view value);
    void integer(std::string_view name, long long value);
    void boolean(std::string_view name, bool value);
    void primitive(std::string_view tag, std::string_view name, std::string_view value);
    void escaped(std::string_view value);

    const bool indent_;
    std::size_t level_ = 0;
    std::string out_;
};

}  // namespace depot
