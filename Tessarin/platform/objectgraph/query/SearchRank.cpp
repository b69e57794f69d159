#include "Tessarin/platform/objectgraph/query/SearchRank.h"

#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/objectgraph/query/SearchRankPrivate.h"

#include <algorithm>
#include <cmath>

namespace Tessarin {
namespace {

constexpr double saturation = 1.2, lengthShare = 0.75; // as FTS5's

NSAttributeDescription const* searchedAttribute(NSExpression const& expression, NSEntityDescription const& entity) {
    if (expression.expressionType() != NSExpressionType::KeyPath || expression.operand()) return nullptr;
    auto const* property = entity.propertyNamed(expression.keyPath().text());
    auto const* attribute = property ? property->asAttribute() : nullptr;
    return attribute && attribute->isFullText() ? attribute : nullptr;
}

} // namespace

Ref<NSSortDescriptor> searchRank() { return NSSortDescriptor::sortDescriptorWithKey(searchRankKey); }

bool asksForRank(std::span<Ref<NSSortDescriptor> const> descriptors) noexcept {
    return std::ranges::any_of(descriptors, [](auto const& each) { return each->key() == searchRankKey; });
}

std::optional<RankedSearch> rankedSearchOf(NSComparisonPredicate const& predicate, NSEntityDescription const& entity) {
    auto const &left = *predicate.leftExpression(), &right = *predicate.rightExpression();
    bool const isSearch = predicate.predicateOperatorType() == NSPredicateOperatorType::Finds &&
                          predicate.comparisonPredicateModifier() == NSComparisonPredicateModifier::Direct &&
                          right.expressionType() == NSExpressionType::ConstantValue && right.constantValue().isText();
    if (!isSearch) return {};
    RankedSearch search{SearchQuery(right.constantValue().text()), {}, &entity};
    auto const add = [&](NSExpression const& expression) {
        search.attributes.push_back(searchedAttribute(expression, entity));
        return search.attributes.back() != nullptr;
    };
    bool const isAggregate = left.expressionType() == NSExpressionType::Aggregate;
    bool const isOfOwn =
        isAggregate ? std::ranges::all_of(left.collection(), [&](auto const& each) { return add(*each); }) : add(left);
    if (!isOfOwn || search.attributes.empty()) return {};
    std::ranges::sort(search.attributes, {}, &NSPropertyDescription::index);
    auto const repeated = std::ranges::unique(search.attributes);
    search.attributes.erase(repeated.begin(), repeated.end());
    return search;
}

std::optional<RankedSearch> rankedSearchOf(NSPredicate const* predicate, NSEntityDescription const& entity) {
    if (!predicate) return {};
    if (auto const* comparison = predicate->asComparison()) return rankedSearchOf(*comparison, entity);
    auto const* compound = predicate->asCompound();
    if (!compound || compound->compoundPredicateType() != NSCompoundPredicateType::And) return {};
    for (auto const& part : compound->subpredicates())
        if (auto search = rankedSearchOf(part.get(), entity)) return search;
    return {};
}

void RankedSearch::appendCounts(NSEntityDescription const& of, TextOf textOf, std::vector<std::uint32_t>& counts) const {
    std::vector<std::size_t> found(query.words().size()), elsewhere(found.size());
    std::size_t length = 0;
    for (auto const* attribute : of.attributes()) {
        if (!attribute->isFullText()) continue;
        bool const isSearched = std::ranges::find(attributes, attribute) != attributes.end();
        length += query.countIn(textOf(*attribute), isSearched ? found : elsewhere);
    }
    for (auto const each : found) counts.push_back(static_cast<std::uint32_t>(each));
    counts.push_back(static_cast<std::uint32_t>(length));
}

SearchRanking::SearchRanking(RankedSearch search, SearchStatistics const& statistics) : search_(std::move(search)) {
    if (statistics.records > 0 && statistics.words > 0)
        averageLength_ = static_cast<double>(statistics.words) / static_cast<double>(statistics.records);
    for (auto const found : statistics.found) {
        auto const weight =
            std::log((static_cast<double>(statistics.records - found) + 0.5) / (static_cast<double>(found) + 0.5));
        weights_.push_back(weight <= 0 ? 1e-6 : weight); // of a word that is in more than half of all
    }
}

double SearchRanking::rankOf(NSEntityDescription const& entity, RankedSearch::TextOf textOf) const {
    std::vector<std::uint32_t> counts;
    search_.appendCounts(entity, textOf, counts);
    return rankOf(counts);
}

double SearchRanking::rankOf(std::span<std::uint32_t const> counts) const {
    auto const length = static_cast<double>(counts.back());
    double score = 0;
    for (std::size_t at = 0; at + 1 < counts.size() && at < weights_.size(); ++at) {
        auto const count = static_cast<double>(counts[at]);
        score += weights_[at] * ((count * (saturation + 1.0)) /
                                 (count + saturation * (1 - lengthShare + lengthShare * length / averageLength_)));
    }
    return -1.0 * score;
}

} // namespace Tessarin
