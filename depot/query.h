#pragma once

#include <string>
#include <variant>
#include <vector>

#include <tl/expected.hpp>

#include "depot/document.h"

namespace depot {

/// A query that the catalogue refuses: answered as HTTP 400.
struct QueryError {
    std::string message;
    std::string rootErrorClass = "org.apache.solr.common.SolrException";
};

/// What Solr names as the cause of a query that its parser cannot read.
inline constexpr const char* kParseException = "org.apache.solr.parser.ParseException";
inline constexpr const char* kSyntaxError = "org.apache.solr.search.SyntaxError";

template <typename Value>
using QueryResult = tl::expected<Value, QueryError>;

struct Query;

/// Every document.
struct MatchAll {};

/// Documents that have the field at all.
struct FieldExists {
    Field field;
};

/// Documents whose field has exactly this value.
struct FieldEquals {
    Field field;
    std::variant<std::string, int, bool> value;
};

/// Documents whose text field matches a pattern: `*` for any text, `?` for one character, `\`
/// before a character that stands for itself.
struct FieldMatches {
    Field field;
    std::string pattern;
};

enum class Occurrence { kOptional, kRequired, kProhibited };

/// Documents that match every required and no prohibited clause and, where nothing is required, at
/// least one optional one. With prohibited clauses only: none, or, at the top of a query, the rest.
struct Clauses {
    std::vector<Occurrence> occurrences;  ///< one for each of `queries`
    std::vector<Query> queries;
};

struct Query {
    std::variant<MatchAll, FieldExists, FieldEquals, FieldMatches, Clauses> node;
};

}  // namespace depot
