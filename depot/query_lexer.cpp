// The tokens of the catalogue's query language. A name may hold nearly everything without quotes;
// what ends a term, and which of its characters may not stand first, decides which names are found.
#include "depot/query_lexer.h"

#include <string>

namespace depot {
namespace {

constexpr std::string_view kBlanks = " \t\n\r";
constexpr std::string_view kWideBlank = "\u3000";
constexpr std::string_view kNotFirstInTerm = "+-!():^[]\"{}~*?\\/";
constexpr std::string_view kAlsoWithinTerm = "+-!/";

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

class Lexer {
  public:
    explicit Lexer(std::string_view text) : text_(text) {}

    QueryResult<std::vector<Token>> run() {
        std::vector<Token> tokens;
        while (true) {
            skipBlanks();
            start_ = at_;
            if (at_ == text_.size()) break;
            const TokenKind kind = next();
            if (failed_) return tl::make_unexpected(lexicalError());
            tokens.push_back({kind, text_.substr(start_, at_ - start_), start_});
            // What follows such a start has another grammar; the query is refused at it anyway.
            if (kind == TokenKind::kUnsupported) break;
        }
        tokens.push_back({TokenKind::kEnd, {}, text_.size()});
        return tokens;
    }

  private:
    bool blankAt(std::size_t at) const {
        return at < text_.size() && (kBlanks.find(text_[at]) != std::string_view::npos ||
                                     text_.substr(at).starts_with(kWideBlank));
    }

    void skipBlanks() {
        while (blankAt(at_)) at_ += text_[at_] == kWideBlank[0] ? kWideBlank.size() : 1;
    }

    TokenKind single(TokenKind kind) {
        ++at_;
        return kind;
    }

    TokenKind fail() {
        failed_ = true;
        return TokenKind::kEnd;
    }

    TokenKind next() {
        switch (text_[at_]) {
            case '(':
                return single(TokenKind::kLeftParenthesis);
            case ')':
                return single(TokenKind::kRightParenthesis);
            case ':':
                return single(TokenKind::kColon);
            case '[':
            case '{':
            case '/':
                return single(TokenKind::kUnsupported);
            case ']':
            case '}':
                return fail();
            case '+':
                return operatorToken(TokenKind::kPlus);
            case '-':
                return operatorToken(TokenKind::kMinus);
            case '!':
                return operatorToken(TokenKind::kNot);
            case '"':
                return quoted();
            case '^':
                return boost();
            case '~':
                return fuzzy();
            default:
                return term();
        }
    }

    TokenKind operatorToken(TokenKind kind) {
        ++at_;
        if (!blankAt(at_)) return kind;
        ++at_;
        return TokenKind::kBareOperator;
    }

    TokenKind quoted() {
        for (++at_; at_ < text_.size(); ++at_) {
            if (text_[at_] == '"') return single(TokenKind::kQuoted);
            if (text_[at_] == '\\') ++at_;
        }
        at_ = text_.size();
        return fail();
    }

    void digits() {
        while (at_ < text_.size() && isDigit(text_[at_])) ++at_;
    }

    /// Digits, and a fraction only when digits follow its point.
    void number() {
        digits();
        if (at_ + 1 < text_.size() && text_[at_] == '.' && isDigit(text_[at_ + 1])) {
            ++at_;
            digits();
        }
    }

    TokenKind boost() {
        ++at_;
        if (at_ < text_.size() && text_[at_] == '=') ++at_;
        if (at_ == text_.size() || !isDigit(text_[at_])) return fail();
        number();
        return TokenKind::kBoost;
    }

    TokenKind fuzzy() {
        ++at_;
        if (at_ < text_.size() && isDigit(text_[at_])) number();
        return TokenKind::kFuzzy;
    }

    bool termCharacterAt(bool first) const {
        const char character = text_[at_];
        if (blankAt(at_)) return false;
        if (!first && kAlsoWithinTerm.find(character) != std::string_view::npos) return true;
        return kNotFirstInTerm.find(character) == std::string_view::npos;
    }

    TokenKind term() {
        bool wildcard = false;
        for (bool first = true; at_ < text_.size(); first = false) {
            const char character = text_[at_];
            if (character == '\\') {
                if (at_ + 1 == text_.size()) return ++at_, fail();
                at_ += 2;
            } else if (character == '*' || character == '?') {
                wildcard = true;
                ++at_;
            } else if (termCharacterAt(first)) {
                ++at_;
            } else {
                break;
            }
        }
        return classify(text_.substr(start_, at_ - start_), wildcard);
    }

    static TokenKind classify(std::string_view image, bool wildcard) {
        if (image == "*") return TokenKind::kStar;
        if (wildcard) return TokenKind::kWildcard;
        if (image == "AND" || image == "&&") return TokenKind::kAnd;
        if (image == "OR" || image == "||") return TokenKind::kOr;
        if (image == "NOT") return TokenKind::kNot;
        return TokenKind::kTerm;
    }

    QueryError lexicalError() const {
        std::string met = "<EOF>";
        if (at_ < text_.size()) met = "\"" + std::string(1, text_[at_]) + "\"";
        return {"Lexical error at line 1, column " + std::to_string(at_ + 1) + ".  Encountered: " +
                    met + " after : \"" + std::string(text_.substr(start_, at_ - start_)) + "\"",
                "org.apache.solr.parser.TokenMgrError"};
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t start_ = 0;
    bool failed_ = false;
};

}  // namespace

QueryResult<std::vector<Token>> tokenize(std::string_view text) {
    return Lexer(text).run();
}

}  // namespace depot
