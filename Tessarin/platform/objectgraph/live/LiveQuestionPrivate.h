#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/objectgraph/context/KeySetPrivate.h"
#include "Tessarin/platform/objectgraph/live/ResultOrderPrivate.h"
#include <span>
#include <vector>

namespace Tessarin {

/// What a live list asks for: which records belong to it, and what each is sorted by. On the context's queue.
class LiveQuestion {
public:
    /// Told a record and what it is sorted by; null for one that does not belong to the list.
    using Answer = FunctionRef<void(RecordKey key, List* values)>;

    LiveQuestion(Ref<NSFetchRequest> request, NSEntityDescription const& entity, std::string_view sectionKeyPath);
    /// For the members of an ordered relationship.
    LiveQuestion(Ref<NSManagedObject> owner, NSRelationshipDescription const& relationship);

    NSEntityDescription const& entity() const noexcept { return *entity_; }
    NSFetchRequest const& request() const noexcept { return *request_; }
    /// Of the request, the section's before them where they do not begin with it.
    std::vector<Ref<NSSortDescriptor>> const& descriptors() const noexcept { return request_->sortDescriptors(); }
    /// Whose members the list shows; null for a list of a request.
    Ref<NSManagedObject> const& owner() const noexcept { return owner_; }
    NSRelationshipDescription const* relationship() const noexcept { return relationship_; }
    /// Whether the list shows a part of what fits: then no record's place is known without the others.
    bool isPart() const noexcept { return request_->fetchLimit() != 0 || request_->fetchOffset() != 0; }

    /// All records of the list, in order. `now`: the list as it is.
    using Taker = FunctionRef<void(RecordKey key, List& values)>;
    Ref<NSError> all(NSManagedObjectContext& context, ResultOrder& now, Taker take) const;
    /// What becomes of those records, as they are now; read together.
    void ask(ContextState& context, ResultOrder const& now, std::span<RecordKey const> keys, Answer answer) const;

private:
    /// `fitting`: what a fetch said of the predicate; null where the object says.
    bool belongs(NSManagedObject& object, KeySet const* fitting) const;
    KeySet fitting(ContextState& context, std::span<RecordKey const> keys) const;
    List valuesOf(NSManagedObject& object) const;
    Ref<NSError> allMembers(ResultOrder& now, Taker take) const;

    Ref<NSFetchRequest> request_;
    NSEntityDescription const* entity_;
    bool leadsOverMany_ = false; // the predicate does
    Ref<NSManagedObject> owner_;
    NSRelationshipDescription const* relationship_ = nullptr;
};

} // namespace Tessarin
