// Words of texts, by the indexes of FTS5. What is looked for never reaches FTS5 as it was written: each word stands in quotes.
#include "Tessarin/platform/objectgraph/query/SQLTranslationPrivate.h"

#include "Tessarin/platform/foundation/predicates/SearchWords.h"
#include "Tessarin/platform/objectgraph/query/SearchRankPrivate.h"

#include <algorithm>
#include <fmt/format.h>

namespace Tessarin {
namespace {

using Operator = NSPredicateOperatorType;

constexpr std::size_t mostWords = 500; // that one expression of FTS5 is made of

std::string inQuotes(std::string_view word) {
    std::string text = "\"";
    for (auto const c : word) text.append(c == '"' ? 2 : 1, c);
    return text + '"';
}

/// `{"title" "text"} : ("jane" AND "pri" *)`; the columns' names are in quotes already.
std::string expressionOf(std::span<std::string const> columns, bool areAll, std::span<std::string const> words,
                         bool endsInBeginning) {
    std::string text = "{";
    for (auto const& column : columns) text += (text.size() > 1 ? " " : "") + column;
    text = areAll ? "(" : text + "} : ("; // to look at each word's column takes as long as to find it
    for (std::size_t at = 0; at < words.size(); ++at) text += (at == 0 ? "" : " AND ") + inQuotes(words[at]);
    return text + (endsInBeginning ? " *)" : ")");
}

bool isPlainWord(std::string_view word) {
    return word.size() <= 100 && std::ranges::all_of(word, [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
           });
}

} // namespace

std::string ftsExpression(SQLSchema const& schema, std::span<NSAttributeDescription const* const> attributes,
                          std::span<std::string const> words, bool endsInBeginning) {
    std::vector<std::string> columns;
    for (auto const* attribute : attributes) columns.push_back(schema.columnNameOf(*attribute));
    return expressionOf(columns, schema.searchesAll(attributes), words, endsInBeginning);
}

SQLTranslation::Said SQLTranslation::withWords(std::span<SQLOperand const> texts, std::string_view words) {
    SearchQuery const query(words);
    std::string listed, any;
    std::vector<NSAttributeDescription const*> attributes;
    bool isIndexed = true;
    auto const table = texts.front().attribute ? schema_.searchTableOf(*texts.front().attribute) : std::string();
    for (auto const& text : texts) {
        listed += ", " + text.sql;
        any += (any.empty() ? "" : " OR ") + text.sql + " IS NOT NULL";
        isIndexed = isIndexed && !table.empty() && text.alias == texts.front().alias && text.attribute &&
                    schema_.searchTableOf(*text.attribute) == table;
        if (isIndexed) attributes.push_back(text.attribute);
    }
    if (query.isEmpty()) return fmt::format("({})", any);
    if (!isIndexed || query.words().size() > mostWords)
        return fmt::format("tessarin_finds({}{})", parameter(std::string(words)), listed);
    return fmt::format("{0}.id IN (SELECT rowid FROM {1} WHERE {1} MATCH {2})", texts.front().alias, table,
                       parameter(ftsExpression(schema_, attributes, query.words(), true)));
}

/// The texts that `{title, text} FINDS …` looks at together; absent for any other comparison.
std::optional<std::vector<SQLOperand>> SQLTranslation::textsOf(NSComparisonPredicate const& predicate, SQLScope& scope) {
    auto const &left = *predicate.leftExpression(), &right = *predicate.rightExpression();
    if (predicate.predicateOperatorType() != Operator::Finds || left.expressionType() != NSExpressionType::Aggregate) return {};
    if (predicate.comparisonPredicateModifier() != NSComparisonPredicateModifier::Direct || !right.isConstant()) return {};
    std::vector<SQLOperand> texts;
    for (auto const& member : left.collection()) {
        if (member->expressionType() != NSExpressionType::KeyPath || member->operand()) return {};
        auto operand = paths_.operand(member->keyPath().components(), scope);
        if (!operand || operand->kind != SQLKind::Text) return {};
        texts.push_back(std::move(*operand));
    }
    return texts.empty() ? std::nullopt : std::optional(std::move(texts));
}

/// A search that all records must fulfil leads to them: its index comes first, and gives ranks.
bool SQLTranslation::addSource(NSComparisonPredicate const& predicate) {
    auto const search = isRankDecided_ ? std::nullopt : rankedSearchOf(predicate, *scope_.entity);
    isRankDecided_ = isRankDecided_ || search;
    if (!search || search->query.isEmpty() || search->query.words().size() > mostWords) return false;
    auto const table = schema_.searchTableOf(*search->attributes.front());
    if (table.empty()) return false;
    arguments_.insert(arguments_.begin(), Value(ftsExpression(schema_, search->attributes, search->query.words(), true)));
    source_ = fmt::format("(SELECT rowid AS id, rank FROM {0} WHERE {0} MATCH ?) AS f CROSS JOIN ", table);
    conditions_.push_back("t0.id = f.id");
    return true;
}

std::string SQLTranslation::sourceCutBy(std::string const& cut) const {
    auto const end = source_.find(") AS f");
    auto const* const direction = order_.starts_with("f.rank DESC") ? " DESC" : "";
    return fmt::format("{} ORDER BY rank{}, rowid{}{}", source_.substr(0, end), direction, cut, source_.substr(end));
}

/// Words of what is compared that a fitting text must have, too. Between blanks words are the same in every text, so those behind
/// a blank are known to begin there, those between two blanks to be whole; inside a word no index can look. Only letters and digits
/// of ASCII: what folds to them is a letter or a digit as well, and so part of the same word.
std::string SQLTranslation::candidates(SQLOperand const& left, Operator type, TextOptions options, std::string_view text) {
    auto const table = left.attribute ? schema_.searchTableOf(*left.attribute) : std::string();
    bool const isKnown =
        type == Operator::BeginsWith || type == Operator::Contains || type == Operator::EndsWith || type == Operator::EqualTo;
    if (table.empty() || !isKnown || options != (TextOptions::CaseInsensitive | TextOptions::DiacriticInsensitive)) return {};
    bool const startsAtEdge = type == Operator::BeginsWith || type == Operator::EqualTo;
    bool const endsAtEdge = type == Operator::EndsWith || type == Operator::EqualTo;
    std::vector<std::string> words;
    std::string beginning;
    for (std::size_t at = 0; at <= text.size();) {
        auto const end = std::min(text.find(' ', at), text.size());
        auto const piece = text.substr(at, end - at);
        bool const beginsWord = at != 0 || startsAtEdge, endsWord = end != text.size() || endsAtEdge;
        if (!piece.empty() && isPlainWord(piece) && beginsWord && words.size() < mostWords)
            endsWord ? words.push_back(foldedText(piece, options)) : void(beginning = foldedText(piece, options));
        at = end + 1;
    }
    bool const endsInBeginning = !beginning.empty();
    if (endsInBeginning) words.push_back(std::move(beginning));
    if (words.empty()) return {};
    return fmt::format("{0}.id IN (SELECT rowid FROM {1} WHERE {1} MATCH {2}) AND ", left.alias, table,
                       parameter(ftsExpression(schema_, {&left.attribute, 1}, words, endsInBeginning)));
}

} // namespace Tessarin
