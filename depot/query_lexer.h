#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "depot/query.h"

namespace depot {

enum class TokenKind {
    kEnd,
    kAnd,
    kOr,
    kNot,
    kPlus,
    kMinus,
    kBareOperator,  ///< + - or ! before a blank: an ordinary term
    kLeftParenthesis,
    kRightParenthesis,
    kColon,
    kStar,  ///< a lone *
    kBoost,
    kQuoted,
    kTerm,
    kFuzzy,
    kWildcard,     ///< a term with * or ?
    kUnsupported,  ///< the start of a range, a regular expression or a comment
};

/// One token: its text as written, escapes and quotes included, and where it begins.
struct Token {
    TokenKind kind = TokenKind::kEnd;
    std::string_view image;
    std::size_t column = 0;  ///< in bytes, from 0
};

/// Splits query text into tokens, the last of them kEnd. The tokens point into `text`.
QueryResult<std::vector<Token>> tokenize(std::string_view text);

}  // namespace depot
