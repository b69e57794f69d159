#pragma once
#include "Tessarin/platform/objectgraph/context/ContextLinkPrivate.h"
#include "Tessarin/platform/objectgraph/context/KeySetPrivate.h"
#include "Tessarin/platform/objectgraph/live/LiveDependenciesPrivate.h"
#include "Tessarin/platform/objectgraph/live/LiveList.h"
#include "Tessarin/platform/objectgraph/live/LiveOutcomePrivate.h"
#include "Tessarin/platform/objectgraph/live/LiveQuestionPrivate.h"
#include <deque>
#include <unordered_map>

namespace Tessarin {

/// What a live list keeps. Which records a turn has touched is gathered first and then worked through, in portions that the
/// queue can bear; each is asked as it is by then.
class LiveList::Inside : public ContextFollower, public std::enable_shared_from_this<LiveList::Inside> {
public:
    using Told = Closure<void(LiveChanges const&)>;

    Inside(ContextLinkRef link, LiveQuestion question, LiveDependencies dependencies, bool hasSections);

    void follow(ContextTurn const& turn) override;
    NSEntityDescription const* onlyTree() const override {
        return dependencies.empty() && !question.owner() ? question.entity().rootEntity() : nullptr;
    }
    /// Works through what waits; at once, or as far as a portion goes.
    void work(bool isWhole);
    void fetchAll();

    ContextLinkRef link;
    LiveQuestion question;
    LiveDependencies dependencies;
    ResultOrder order;
    ResultSections sections;
    bool const hasSections;
    std::vector<LiveSection> whole{{Value(), 0}}; // the only section of a list without any
    Ref<NSError> error;
    std::vector<WeakRef<Told>> observers;
    std::vector<Ref<NSManagedObject>> window; // neighbours that were looked at

private:
    struct Touched {
        RecordKey key;
        bool isShown;
    };
    /// A set, of which the changes from `next` on have not been looked at.
    struct Waiting {
        Ref<ChangeSet const> set;
        std::size_t next;
    };
    struct Working {
        explicit Working(bool& flag) : isWorking(flag) { isWorking = true; }
        ~Working() { isWorking = false; }
        bool& isWorking;
    };
    void gather(ContextState& context, ContextTurn const& turn);
    void gather(ContextState& context, ContextTurn::Arrival const& arrival);
    bool isOfList(NSEntityDescription const& entity) const;
    /// Where it is not known what a change touches, everything is fetched, and may show something else.
    void noteFollowed(bool isFollowed) noexcept { mustFetch_ = showsAllAnew_ = mustFetch_ || !isFollowed; }
    /// What changes an owner may change who its members are.
    void noteMembers(RecordKey key) {
        if (question.owner() && question.owner()->recordKey() == key) mustFetch_ = true;
    }
    void touch(RecordKey key, bool isShown) { touched_.push_back({key, isShown}); }
    RecordKey current(RecordKey key) const;
    std::vector<Touched> nextPortion(std::size_t most);
    bool hasMore() const noexcept { return mustFetch_ || !touched_.empty() || !sets_.empty(); }
    void takeNewKeys(std::vector<LiveChange>& steps);
    void workPortion(ContextState& context, std::vector<LiveChange>& steps);
    void fetchAgain(ContextState& context, std::vector<LiveChange>& steps);
    void tell(std::vector<LiveChange> steps);
    void goOnLater();
    void noteTemporary(RecordKey key) {
        if (key < 0) temporaries_.add(key);
    }

    std::deque<Touched> touched_;
    std::deque<Waiting> sets_;
    KeySet temporaries_; // keys of the list that may become others
    std::unordered_map<RecordKey, RecordKey> newKeys_; // of what waits
    bool hasNewKeys_ = false;
    bool mustFetch_ = false;
    bool showsAllAnew_ = false; // when it is fetched
    bool isScheduled_ = false;
    bool isWorking_ = false;
};

} // namespace Tessarin
