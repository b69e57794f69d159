#pragma once
#include "Tessarin/platform/runtime/Ref.h"
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace Tessarin {

class ChangeSet;
class NSEntityDescription;
class NSSortDescriptor;

/// The first of the records that a change set inserts, in the order of a request: a list that shows its first twenty beside a
/// save of many thousand would otherwise look at each. Sorted on the first question, as far as lists mostly look. Any thread.
class ChangeOrder {
public:
    using Descriptors = std::span<Ref<NSSortDescriptor> const>;

    /// Places among the changes of one tree of entities.
    struct First {
        std::vector<std::uint32_t> places;
        bool isAll = false; // there are no more
    };
    /// At least `count` insertions where there are so many, by the attributes that the descriptors name and then by key. Always
    /// of the same set.
    std::shared_ptr<First const> first(ChangeSet const& set, NSEntityDescription const& tree, Descriptors descriptors,
                                       std::size_t count) const;

private:
    mutable std::mutex mutex_;
    mutable std::map<std::string, std::shared_ptr<First const>> answers_; // guarded by mutex_; never changed
};

} // namespace Tessarin
