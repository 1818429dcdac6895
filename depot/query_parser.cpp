// Recursive descent over the tokens. Clauses combine as in the classic Lucene grammar: an operator
// belongs to the clause that it stands before, and AND reaches back to the one before it.
#include "depot/query_parser.h"

#include <charconv>
#include <optional>
#include <utility>

#include "depot/query_lexer.h"
#include "depot/query_text.h"

namespace depot {
namespace {

constexpr int kNestingLimit = 100;
constexpr std::string_view kEveryField = "*";

enum class Conjunction { kNone, kAnd, kOr };
enum class Modifier { kNone, kRequired, kProhibited };

tl::unexpected<QueryError> refuse(std::string message) {
    return tl::make_unexpected(QueryError{std::move(message)});
}

std::string_view tokenName(TokenKind kind) {
    switch (kind) {
        case TokenKind::kEnd:
            return "<EOF>";
        case TokenKind::kAnd:
            return "<AND>";
        case TokenKind::kOr:
            return "<OR>";
        case TokenKind::kNot:
            return "<NOT>";
        case TokenKind::kPlus:
            return "\"+\"";
        case TokenKind::kMinus:
            return "\"-\"";
        case TokenKind::kBareOperator:
            return "<BAREOPER>";
        case TokenKind::kLeftParenthesis:
            return "\"(\"";
        case TokenKind::kRightParenthesis:
            return "\")\"";
        case TokenKind::kColon:
            return "\":\"";
        case TokenKind::kStar:
            return "\"*\"";
        case TokenKind::kBoost:
            return "\"^\"";
        case TokenKind::kQuoted:
            return "<QUOTED>";
        case TokenKind::kTerm:
            return "<TERM>";
        case TokenKind::kFuzzy:
            return "<FUZZY_SLOP>";
        case TokenKind::kWildcard:
            return "<WILDTERM>";
        case TokenKind::kUnsupported:
            return "<UNSUPPORTED>";
    }
    return "";
}

QueryResult<Query> equals(const FieldDescription& field, std::string text) {
    switch (field.type) {
        case FieldType::kText:
            return Query{FieldEquals{field.field, std::move(text)}};
        case FieldType::kBoolean: {
            const char first = text.empty() ? 'f' : text.front();
            return Query{FieldEquals{field.field, first == '1' || first == 't' || first == 'T'}};
        }
        case FieldType::kInteger:
            break;
    }
    int number = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec != std::errc() || read.ptr != end) return refuse("Invalid Number: " + text);
    return Query{FieldEquals{field.field, number}};
}

QueryResult<Query> matches(const FieldDescription& field, std::string_view pattern) {
    if (pattern == "*") return Query{FieldExists{field.field}};
    if (field.type != FieldType::kText)
        return refuse("patterns are not supported for field " + std::string(field.name));
    return Query{FieldMatches{field.field, std::string(pattern)}};
}

class Parser {
  public:
    explicit Parser(std::vector<Token> tokens) : tokens_(std::move(tokens)) {}

    QueryResult<Query> run() {
        auto query = parseClauses(std::nullopt, 0);
        if (query && peek().kind != TokenKind::kEnd) return unexpected();
        return query;
    }

  private:
    using FieldName = std::optional<std::string>;

    const Token& peek(std::size_t ahead = 0) const {
        return tokens_[std::min(at_ + ahead, tokens_.size() - 1)];
    }

    bool accept(TokenKind kind) {
        if (peek().kind != kind) return false;
        ++at_;
        return true;
    }

    tl::unexpected<QueryError> unexpected() const {
        const Token& token = peek();
        std::string met = " " + std::string(tokenName(token.kind));
        if (token.kind == TokenKind::kEnd) {
            met = "<EOF>";
        } else {
            met += " \"" + std::string(token.image) + " \"";
        }
        return tl::make_unexpected(QueryError{
            "Encountered \"" + met + "\" at line 1, column " + std::to_string(token.column) +
                ".\nWas expecting one of:\n    <NOT> ...\n    \"+\" ...\n    \"-\" ...\n"
                "    <BAREOPER> ...\n    \"(\" ...\n    \"*\" ...\n    <QUOTED> ...\n"
                "    <TERM> ...\n    <WILDTERM> ...\n    ",
            kParseException});
    }

    Conjunction conjunction() {
        if (accept(TokenKind::kAnd)) return Conjunction::kAnd;
        if (accept(TokenKind::kOr)) return Conjunction::kOr;
        return Conjunction::kNone;
    }

    Modifier modifier() {
        if (accept(TokenKind::kPlus)) return Modifier::kRequired;
        if (accept(TokenKind::kMinus) || accept(TokenKind::kNot)) return Modifier::kProhibited;
        return Modifier::kNone;
    }

    static void add(Clauses& clauses, Conjunction before, Modifier modifier, Query query) {
        if (before == Conjunction::kAnd && !clauses.occurrences.empty() &&
            clauses.occurrences.back() != Occurrence::kProhibited)
            clauses.occurrences.back() = Occurrence::kRequired;
        Occurrence occurrence = Occurrence::kOptional;
        if (modifier == Modifier::kProhibited) {
            occurrence = Occurrence::kProhibited;
        } else if (modifier == Modifier::kRequired || before == Conjunction::kAnd) {
            occurrence = Occurrence::kRequired;
        }
        clauses.occurrences.push_back(occurrence);
        clauses.queries.push_back(std::move(query));
    }

    bool atEndOfClauses() const {
        switch (peek().kind) {
            case TokenKind::kEnd:
            case TokenKind::kRightParenthesis:
            case TokenKind::kColon:
            case TokenKind::kBoost:
            case TokenKind::kFuzzy:
                return true;
            case TokenKind::kAnd:
            case TokenKind::kOr:
            case TokenKind::kNot:
            case TokenKind::kPlus:
            case TokenKind::kMinus:
            case TokenKind::kBareOperator:
            case TokenKind::kLeftParenthesis:
            case TokenKind::kStar:
            case TokenKind::kQuoted:
            case TokenKind::kTerm:
            case TokenKind::kWildcard:
            case TokenKind::kUnsupported:
                return false;
        }
        return true;
    }

    QueryResult<Query> parseClauses(const FieldName& field, int depth) {
        if (depth > kNestingLimit)
            return refuse("more than " + std::to_string(kNestingLimit) +
                          " parentheses within one another");
        Clauses clauses;
        do {
            const Conjunction before = clauses.queries.empty() ? Conjunction::kNone : conjunction();
            const Modifier how = modifier();
            auto query = parseClause(field, depth);
            if (!query) return query;
            add(clauses, before, how, std::move(*query));
        } while (!atEndOfClauses());
        const bool single =
            clauses.queries.size() == 1 && clauses.occurrences.front() != Occurrence::kProhibited;
        if (single) return std::move(clauses.queries.front());
        return Query{std::move(clauses)};
    }

    QueryResult<FieldName> fieldPrefix(const FieldName& outer) {
        const Token& token = peek();
        const bool names = token.kind == TokenKind::kTerm || token.kind == TokenKind::kStar;
        if (!names || peek(1).kind != TokenKind::kColon) return outer;
        at_ += 2;
        auto name = withoutEscapes(token.image);
        if (!name) return tl::make_unexpected(name.error());
        return FieldName(std::move(*name));
    }

    QueryResult<Query> parseClause(const FieldName& outer, int depth) {
        const auto field = fieldPrefix(outer);
        if (!field) return tl::make_unexpected(field.error());
        QueryResult<Query> query;
        if (accept(TokenKind::kLeftParenthesis)) {
            query = parseClauses(*field, depth + 1);
            if (query && !accept(TokenKind::kRightParenthesis)) return unexpected();
        } else {
            query = parseValue(*field);
            while (query && accept(TokenKind::kFuzzy)) {
            }
        }
        if (query) accept(TokenKind::kBoost);
        return query;
    }

    QueryResult<Query> parseValue(const FieldName& name) {
        const Token token = peek();
        ++at_;
        switch (token.kind) {
            case TokenKind::kStar:
                if (name && *name == kEveryField) return Query{MatchAll{}};
                return pattern(name, token.image);
            case TokenKind::kWildcard:
                return pattern(name, token.image);
            case TokenKind::kBareOperator:
                return value(name, token.image.substr(0, 1));
            case TokenKind::kTerm:
                return value(name, token.image);
            case TokenKind::kQuoted:
                return value(name, token.image.substr(1, token.image.size() - 2));
            case TokenKind::kUnsupported:
                return tl::make_unexpected(QueryError{
                    "ranges, regular expressions, comments and local parameters are not "
                    "supported: \"" +
                        std::string(token.image) + "\" at column " + std::to_string(token.column),
                    kParseException});
            case TokenKind::kEnd:
            case TokenKind::kAnd:
            case TokenKind::kOr:
            case TokenKind::kNot:
            case TokenKind::kPlus:
            case TokenKind::kMinus:
            case TokenKind::kLeftParenthesis:
            case TokenKind::kRightParenthesis:
            case TokenKind::kColon:
            case TokenKind::kBoost:
            case TokenKind::kFuzzy:
                break;
        }
        --at_;
        return unexpected();
    }

    static QueryResult<const FieldDescription*> describe(const FieldName& name) {
        if (!name)
            return refuse(
                "no field name specified in query and no default specified via 'df' param");
        const FieldDescription* field = findField(*name);
        if (field == nullptr) return refuse("undefined field " + *name);
        return field;
    }

    static QueryResult<Query> value(const FieldName& name, std::string_view image) {
        const auto field = describe(name);
        if (!field) return tl::make_unexpected(field.error());
        auto text = withoutEscapes(image);
        if (!text) return tl::make_unexpected(text.error());
        return equals(**field, std::move(*text));
    }

    static QueryResult<Query> pattern(const FieldName& name, std::string_view image) {
        const auto field = describe(name);
        if (!field) return tl::make_unexpected(field.error());
        return matches(**field, image);
    }

    std::vector<Token> tokens_;
    std::size_t at_ = 0;
};

/// The form in which a syntax error is told to the client.
QueryError inQuery(QueryError error, std::string_view text) {
    if (error.rootErrorClass.starts_with("org.apache.solr.parser.") ||
        error.rootErrorClass == kSyntaxError)
        error.message = "org.apache.solr.search.SyntaxError: Cannot parse '" + std::string(text) +
                        "': " + error.message;
    return error;
}

}  // namespace

QueryResult<Query> parseQuery(std::string_view text) {
    auto tokens = tokenize(text);
    if (!tokens) return tl::make_unexpected(inQuery(tokens.error(), text));
    auto query = Parser(std::move(*tokens)).run();
    if (!query) return tl::make_unexpected(inQuery(query.error(), text));
    return query;
}

}  // namespace depot
