#pragma once
#include "Tessarin/platform/objectgraph/live/LiveList.h"
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

/// A live list beside a copy that knows nothing but what the list tells: rows as a view would show them.
class LiveMirror {
public:
    LiveMirror(std::string name, Ref<NSManagedObjectContext> context, Ref<NSFetchRequest> request, LiveOptions options);

    /// The copy, the list and a fetch of this moment show the same. On the context's queue.
    void check(std::string const& when, Tally& tally);

private:
    struct Row {
        RecordKey key = 0; // 0: came, and has not been looked at
        std::string text;
    };
    void apply(LiveChanges const& changes);
    void apply(LiveChange const& step);
    std::string text(NSManagedObject& object) const;
    std::vector<Row>& section(std::size_t at);
    bool endsAgree(NSManagedObject& object);
    void requireAgrees();

    std::string name_;
    Ref<NSFetchRequest> request_; // as a fetch has to ask for the same
    LiveOptions options_;
    Ref<LiveList> list_;
    std::vector<std::vector<Row>> copy_;
    std::vector<std::string> problems_; // found while it was told
    std::size_t tellings_ = 0, moves_ = 0, sectionSteps_ = 0, disagreements_ = 0;
    ScopedConnection connection_;
};

} // namespace Tessarin::campaigns
