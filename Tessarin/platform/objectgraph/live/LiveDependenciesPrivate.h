#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

/// The records beyond its own that a live list depends on by key paths, and the way from those back to the list's.
class LiveDependencies {
public:
    explicit LiveDependencies(NSEntityDescription const& entity) : entity_(&entity) {}

    /// `isShown`: who looks at the list sees what is at the end of the path.
    void add(std::string_view keyPath, bool isShown);

    bool empty() const noexcept { return ways_.empty(); }

    /// Told a record of the list's entity that may stand elsewhere now, or shows something else.
    using Affected = FunctionRef<void(RecordKey key, bool isShown)>;
    /// What changes of those records mean. False when that cannot be told.
    bool follow(ContextState& context, std::span<ContextTurn::Record const> records, Affected affected) const;
    /// The same for a whole set.
    bool follow(ContextState& context, ChangeSet const& set, bool isCorrection, Affected affected) const;

private:
    using Links = std::vector<NSRelationshipDescription const*>;
    struct Way {
        Links links; // from the list's entity
        std::vector<NSPropertyDescription const*> read;      // at the end of them
        bool isShown = false;
        bool leadsBack = false; // by inverses
    };
    void add(Links const& links, NSEntityDescription const& entity, std::string_view keyPath, bool isShown);
    Way& wayAlong(Links const& links, bool isShown);
    bool reads(Way const& way, RecordChange const& change) const;
    bool follow(ContextState& context, Way const& way, ChangeSet const& set, bool isCorrection, Affected affected) const;
    std::vector<RecordKey> keysLeadingTo(ContextState& context, Way const& way, List ends) const;
    /// `keys`: one link before the end of the way.
    static void walkBack(ContextState& context, Way const& way, std::vector<RecordKey> keys, Affected affected);

    NSEntityDescription const* entity_;
    std::vector<Way> ways_;
};

} // namespace Tessarin
