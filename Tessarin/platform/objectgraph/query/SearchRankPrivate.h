#pragma once
#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/SearchWords.h"
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/query/SearchRank.h"

namespace Tessarin {

inline constexpr std::string_view searchRankKey = "@rank";

bool asksForRank(std::span<Ref<NSSortDescriptor> const> descriptors) noexcept;

/// What a rank is of: the words, and the attributes in which they are looked for.
struct RankedSearch {
    SearchQuery query;
    std::vector<NSAttributeDescription const*> attributes;
    NSEntityDescription const* entity = nullptr;

    /// An attribute's text; empty when it has none.
    using TextOf = FunctionRef<std::string_view(NSAttributeDescription const&)>;
    /// What a record's rank is made of is appended: how often each word is in the texts that are searched, and how many words all
    /// of its texts have.
    void appendCounts(NSEntityDescription const& entity, TextOf textOf, std::vector<std::uint32_t>& counts) const;
    std::size_t countsOfOne() const noexcept { return query.words().size() + 1; }
};
/// The search of a predicate by which records can be ranked, whether there are words in it or not.
std::optional<RankedSearch> rankedSearchOf(NSPredicate const* predicate, NSEntityDescription const& entity);
/// The same for a single comparison.
std::optional<RankedSearch> rankedSearchOf(NSComparisonPredicate const& predicate, NSEntityDescription const& entity);

/// What a store knows of the texts that it holds; of records in one table.
struct SearchStatistics {
    std::int64_t records = 0;
    std::int64_t words = 0; // in all full-text attributes
    std::vector<std::int64_t> found; // records for each word of the query
};

/// Ranks as FTS5 does, to the last bit, so that what is only in memory takes its place among what the store has ranked.
class TESSARIN_API SearchRanking {
public:
    SearchRanking(RankedSearch search, SearchStatistics const& statistics);
    /// The smaller, the better.
    double rankOf(NSEntityDescription const& entity, RankedSearch::TextOf textOf) const;
    /// The same of what `RankedSearch::appendCounts` gives for one record.
    double rankOf(std::span<std::uint32_t const> counts) const;
    /// Whether it gives the same ranks for the same words.
    bool isAlike(SearchRanking const& other) const noexcept {
        return weights_ == other.weights_ && averageLength_ == other.averageLength_;
    }

private:
    RankedSearch const search_;
    std::vector<double> weights_; // of the words
    double averageLength_ = 1;
};

} // namespace Tessarin
