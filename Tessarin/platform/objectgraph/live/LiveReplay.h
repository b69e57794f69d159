#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/live/LiveChanges.h"
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace Tessarin {

class LiveList;

/// A list between two steps of a telling, for models of toolkits: these must show, at each step that they announce, the list as
/// it is at that moment. Keeps a number for each section, and finds rows by walking through the steps that are still to come.
class TESSARIN_API LiveReplay {
public:
    struct Place {
        std::size_t section = 0, row = 0;
        friend bool operator==(Place const&, Place const&) = default;
    };

    explicit LiveReplay(LiveList const& list);

    std::size_t sections() const noexcept { return counts_.size(); }
    std::size_t rows(std::size_t section) const { return counts_[section]; }

    /// Nothing of it has been shown. `steps` lives until `end`.
    void begin(std::span<LiveChange const> steps) noexcept { steps_ = steps; }
    /// The next step has been taken.
    void take();
    /// All steps at once.
    void end();
    /// Where a row of this moment stands in the end; absent for one that goes.
    std::optional<Place> inTheEnd(Place place) const;

private:
    std::vector<std::size_t> counts_;
    std::span<LiveChange const> steps_; // still to come
};

} // namespace Tessarin
