// What a fetch would ask SQLite for, and what it would leave to the context.
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPrivate.h"
#include "Tessarin/platform/objectgraph/query/FetchExplanation.h"
#include "Tessarin/platform/objectgraph/query/SQLTranslationPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

/// The conditions that must all hold, as SQL is asked for them one by one.
void collect(NSPredicate const& predicate, std::vector<NSPredicate const*>& parts) {
    auto const* compound = dynamic_cast<NSCompoundPredicate const*>(&predicate);
    if (!compound || compound->compoundPredicateType() != NSCompoundPredicateType::And) return parts.push_back(&predicate);
    for (auto const& part : compound->subpredicates()) collect(*part, parts);
}

/// "SEARCH t0 USING INDEX book_title (title=?)" names one, "… USING COVERING INDEX …" and "… USING INTEGER PRIMARY KEY …" too.
void addIndexOf(std::string_view step, std::vector<std::string>& indexes) {
    static constexpr std::string_view word = " INDEX ";
    auto const at = step.find(word);
    if (at == std::string_view::npos) return;
    std::string name(step.substr(at + word.size()));
    name.resize(std::min(name.find(' '), name.size()));
    if (std::ranges::find(indexes, name) == indexes.end()) indexes.push_back(std::move(name));
}

} // namespace

void SQLiteReader::explain(StoreQuery const& query, FetchExplanation& explanation) {
    SQLTranslation translation(schema_, *query.entity);
    auto const reading = readingOf(query, translation, translate(query, translation));
    explanation.sql = textOf(query, translation, reading);
    SQLite::Statement steps(connection_, "EXPLAIN QUERY PLAN " + explanation.sql);
    bindAll(steps, translation.arguments());
    if (reading.isCut) bindCut(steps, query, static_cast<int>(translation.arguments().size()));
    explanation.boundCount = static_cast<std::size_t>(steps.parameterCount());
    std::vector<std::pair<std::int64_t, std::size_t>> depths{{0, 0}};
    while (steps.step()) {
        auto const parent = std::ranges::find(depths, steps.integer(1), &std::pair<std::int64_t, std::size_t>::first);
        auto const depth = parent == depths.end() ? 0 : parent->second;
        depths.emplace_back(steps.integer(0), depth + 1);
        addIndexOf(steps.text(3), explanation.indexes);
        explanation.plan.push_back(std::string(depth * 2, ' ') + std::string(steps.text(3)));
    }

    auto& left = explanation.inMemory;
    std::vector<NSPredicate const*> parts;
    if (query.predicate) collect(*query.predicate, parts);
    for (auto const* part : parts)
        if (SQLTranslation alone(schema_, *query.entity); !alone.addPredicate(*part))
            left.push_back("Filtered by a condition that SQL cannot say with the same answer: " + part->predicateFormat() + ".");
    bool const isFiltered = !left.empty();
    if (SQLTranslation alone(schema_, *query.entity); !alone.addOrder(query.sortDescriptors))
        left.push_back("Sorted: SQL cannot say this order with the same answer.");
    else if (isFiltered && !query.sortDescriptors.empty())
        left.push_back("Sorted, once it is filtered.");
    if (!reading.isCut && (query.limit != 0 || query.offset != 0))
        left.push_back("Cut by limit and offset, at the end: every record that the SQL gives is read.");
}

} // namespace Tessarin
