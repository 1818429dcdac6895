#pragma once

#include <string_view>

#include "depot/query.h"

namespace depot {

/// Parses query text, already decoded from its URL, into a query. The language:
///
///   query     = [modifier] clause { [AND | OR | && | ||] [modifier] clause }
///   modifier  = "+" | "-" | "!" | NOT
///   clause    = [field ":"] ( value | "(" query ")" ) [boost]
///   value     = term | "quoted text" | pattern with * or ? | "*"
///
/// Clauses without an operator between them are alternatives; AND makes the clauses on both of its
/// sides required. A field before parentheses holds for everything within. `*:*` is every document.
/// A backslash takes the next character as it is, `\uXXXX` is a code unit of UTF-16. Quoted text is
/// compared whole. A term's fuzziness (~) and boost (^) are read and change nothing. Ranges,
/// regular expressions, comments and local parameters are refused, and so are more than 100
/// parentheses within one another.
QueryResult<Query> parseQuery(std::string_view text);

}  // namespace depot
