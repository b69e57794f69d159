#pragma once
#include "Tessarin/platform/runtime/Value.h"
#include <cstddef>
#include <span>
#include <vector>

namespace Tessarin {

/// A run of results that have the same value at the section key path.
struct LiveSection {
    Value name;            // of the first that came into it
    std::size_t count = 0; // how many results
};

/// One step from a list as it was to the list as it is. The steps of one telling are applied one after the other: places are
/// those at that moment. A list without sections stands in section 0, which is never inserted or removed.
struct LiveChange {
    enum class Kind {
        InsertSection, // an empty one, at `section`
        RemoveSection, // an empty one
        Insert,        // `count` rows, the first of them at `row`
        Remove,
        Move,   // one row, which is taken out of (section, row) and then put in at (toSection, toRow)
        Update, // `count` rows show something else
    };

    Kind kind = Kind::Update;
    std::size_t section = 0;
    std::size_t row = 0;
    std::size_t count = 1;
    std::size_t toSection = 0;
    std::size_t toRow = 0;
    friend bool operator==(LiveChange const&, LiveChange const&) = default;
};

/// What has happened to a list since its observers were told last.
class LiveChanges {
public:
    explicit LiveChanges(std::vector<LiveChange> steps) : steps_(std::move(steps)) {}

    std::span<LiveChange const> steps() const noexcept { return steps_; }

private:
    std::vector<LiveChange> steps_;
};

} // namespace Tessarin
