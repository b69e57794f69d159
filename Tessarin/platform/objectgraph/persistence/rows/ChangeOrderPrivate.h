#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeMatchesPrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace Tessarin {

class ChangeSet;

/// The first of the records that a change set inserts and updates, in the order of a request: a list that shows its first twenty
/// beside a save of many thousand would otherwise look at each. Sorted on the first question, as far as lists mostly look. Any
/// thread.
class ChangeOrder {
public:
    /// Places among the changes of one tree of entities.
    struct First {
        std::vector<std::uint32_t> places;
        bool isAll = false; // there are no more
    };
    /// At least `count` records where there are so many, by the attributes that the descriptors name, or by rank, and then by key.
    /// `matches` is asked for those that fulfil the question's condition, where it has one; null, and so is the answer, when that is
    /// given up. Always of the same set.
    using Matches = FunctionRef<std::shared_ptr<ChangeMatches::Found const>()>;
    std::shared_ptr<First const> first(ChangeSet const& set, ChangeQuestion const& question, std::size_t count,
                                       Matches matches) const;
    bool knows(ChangeQuestion const& question) const { return known(question) != nullptr; }

private:
    struct Answer {
        ChangeQuestion question;
        std::shared_ptr<First const> first;
    };
    std::shared_ptr<First const> known(ChangeQuestion const& question) const;

    mutable std::mutex mutex_;
    mutable std::vector<Answer> answers_; // guarded by mutex_; the newest last, few
};

} // namespace Tessarin
