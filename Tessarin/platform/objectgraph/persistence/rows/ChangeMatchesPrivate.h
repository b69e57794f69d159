#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeQuestionPrivate.h"
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace Tessarin {

class ChangeIndex;
struct RecordChange;

/// Which changes of a set leave records that fulfil a condition: found once, by the rows alone, by whoever asks first, so that a
/// search beside a save of many records need not look at each where it is delivered. Any thread.
class ChangeMatches {
public:
    struct Found {
        std::vector<std::uint32_t> places;     // among the changes of one tree of entities
        std::vector<std::uint32_t> wordCounts; // of a question for ranks: what they are made of, place after place
    };
    /// Always of the same changes; `index` is theirs. Null once it is given up.
    std::shared_ptr<Found const> find(std::span<RecordChange const> changes, ChangeIndex const& index,
                                      ChangeQuestion const& question, std::atomic<bool> const* isGivenUp = nullptr) const;
    /// Whether that costs nothing any more.
    bool knows(ChangeQuestion const& question) const { return known(question) != nullptr; }

private:
    struct Answer {
        NSEntityDescription const* entity;
        Ref<NSPredicate const> condition;
        bool isCounted; // for ranks
        std::shared_ptr<Found const> found;
    };
    std::shared_ptr<Found const> known(ChangeQuestion const& question) const;

    mutable std::mutex mutex_;
    mutable std::vector<Answer> answers_; // guarded by mutex_; the newest last, few
};

} // namespace Tessarin
