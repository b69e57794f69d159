#pragma once
#include "Tessarin/platform/objectgraph/live/LiveChanges.h"
#include "Tessarin/platform/objectgraph/live/ResultOrderPrivate.h"
#include "Tessarin/platform/objectgraph/live/ResultSectionsPrivate.h"
#include <vector>

namespace Tessarin {

/// What became of records, brought to a list step by step: what left goes first, then what stands elsewhere moves, then what is
/// new comes, and at the end what shows something else is named. Every step leaves a list in order.
class LiveOutcome {
public:
    /// `sections` null: the list has none.
    LiveOutcome(ResultOrder& order, ResultSections* sections) : order_(order), sections_(sections) {}

    /// A record that was asked about, once: `values` null where it does not belong to the list. `isShown`: it may show something
    /// else.
    void note(RecordKey key, List* values, bool isShown);
    /// A record of the list has another key from now on.
    void noteNewKey(RecordKey before, RecordKey now);
    /// Brings all that to the list.
    std::vector<LiveChange> apply();

private:
    struct Comer {
        RecordKey key;
        List values;
        RecordKey before; // its key in the list
    };
    void leave(std::size_t section);
    void removeLeaving();
    void move(Comer const& mover);
    void insertComing();
    void nameShown();
    void removeEmptySections();

    struct Place {
        std::size_t section, row;
    };
    Place placeOf(std::size_t rank) const;
    /// The section that a result with these values belongs to, made where it is missing.
    std::size_t sectionFor(List const& values);
    void add(LiveChange::Kind kind, Place place);

    ResultOrder& order_;
    ResultSections* sections_;
    std::vector<RecordKey> leaving_, shown_;
    std::vector<Comer> moving_, coming_;
    std::vector<LiveChange> steps_;
    bool hasLeft_ = false; // a section is empty, or was
};

} // namespace Tessarin
