// Evaluates set by set: a list of names costs one look-up each, however large the catalogue is.
#include "depot/query_evaluator.h"

#include <algorithm>
#include <functional>

#include "depot/query_text.h"

namespace depot {
namespace {

void intersect(DocumentSet& into, const DocumentSet& other) {
    std::transform(into.begin(), into.end(), other.begin(), into.begin(), std::logical_and<>());
}

void unite(DocumentSet& into, const DocumentSet& other) {
    std::transform(into.begin(), into.end(), other.begin(), into.begin(), std::logical_or<>());
}

template <typename Test>
DocumentSet where(const Snapshot& snapshot, Test test) {
    DocumentSet set(snapshot.size());
    for (std::size_t at = 0; at < set.size(); ++at) set[at] = test(snapshot.document(at));
    return set;
}

bool hasValue(const FieldValue& field, const std::variant<std::string, int, bool>& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        const auto* have = std::get_if<std::string_view>(&field);
        return have != nullptr && *have == *text;
    }
    if (const auto* number = std::get_if<int>(&value)) return field == FieldValue(*number);
    return field == FieldValue(std::get<bool>(value));
}

class Evaluator {
  public:
    explicit Evaluator(const Snapshot& snapshot) : snapshot_(snapshot) {}

    DocumentSet operator()(const MatchAll&) const { return DocumentSet(snapshot_.size(), true); }

    DocumentSet operator()(const FieldExists& query) const {
        return where(snapshot_, [&](const Document& document) {
            return fieldValue(document, query.field) != FieldValue();
        });
    }

    DocumentSet operator()(const FieldEquals& query) const {
        if (const auto* filename = nameIn(query)) {
            DocumentSet set(snapshot_.size());
            if (const auto position = snapshot_.position(*filename)) set[*position] = true;
            return set;
        }
        return where(snapshot_, [&](const Document& document) {
            return hasValue(fieldValue(document, query.field), query.value);
        });
    }

    DocumentSet operator()(const FieldMatches& query) const {
        return where(snapshot_, [&](const Document& document) {
            const FieldValue value = fieldValue(document, query.field);
            const auto* text = std::get_if<std::string_view>(&value);
            return text != nullptr && matchesPattern(query.pattern, *text);
        });
    }

    DocumentSet operator()(const Clauses& clauses) const {
        const auto has = [&](Occurrence wanted) {
            const auto& all = clauses.occurrences;
            return std::find(all.begin(), all.end(), wanted) != all.end();
        };
        const bool anyRequired = has(Occurrence::kRequired);
        DocumentSet set(snapshot_.size(), anyRequired);
        for (std::size_t at = 0; at < clauses.queries.size(); ++at) {
            if (clauses.occurrences[at] == Occurrence::kRequired)
                intersect(set, std::visit(*this, clauses.queries[at].node));
            else if (clauses.occurrences[at] == Occurrence::kOptional && !anyRequired)
                add(set, clauses.queries[at]);
        }
        removeProhibited(set, clauses);
        return set;
    }

    void removeProhibited(DocumentSet& set, const Clauses& clauses) const {
        for (std::size_t at = 0; at < clauses.queries.size(); ++at) {
            if (clauses.occurrences[at] != Occurrence::kProhibited) continue;
            DocumentSet without = std::visit(*this, clauses.queries[at].node);
            without.flip();
            intersect(set, without);
        }
    }

  private:
    static const std::string* nameIn(const FieldEquals& query) {
        return query.field == Field::kFilename ? std::get_if<std::string>(&query.value) : nullptr;
    }

    /// A list of hundreds of names must not cost a set each.
    void add(DocumentSet& set, const Query& query) const {
        const auto* equals = std::get_if<FieldEquals>(&query.node);
        const std::string* filename = equals != nullptr ? nameIn(*equals) : nullptr;
        if (filename == nullptr) {
            unite(set, std::visit(*this, query.node));
        } else if (const auto position = snapshot_.position(*filename)) {
            set[*position] = true;
        }
    }

    const Snapshot& snapshot_;
};

bool prohibitsOnly(const Clauses& clauses) {
    return std::all_of(clauses.occurrences.begin(), clauses.occurrences.end(),
                       [](Occurrence each) { return each == Occurrence::kProhibited; });
}

}  // namespace

DocumentSet evaluate(const Query& query, const Snapshot& snapshot) {
    const Evaluator evaluator(snapshot);
    const auto* clauses = std::get_if<Clauses>(&query.node);
    if (clauses != nullptr && prohibitsOnly(*clauses)) {
        DocumentSet rest(snapshot.size(), true);
        evaluator.removeProhibited(rest, *clauses);
        return rest;
    }
    return std::visit(evaluator, query.node);
}

DocumentSet documentsOf(Core core, const Snapshot& snapshot) {
    return where(snapshot, [core](const Document& document) {
        return core == Core::kDrivers || document.agent;
    });
}

}  // namespace depot
