#pragma once
#include "Tessarin/platform/objectgraph/persistence/stores/RecordKey.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/Value.h"

namespace Tessarin {

class ChangeSet;
class NSManagedObject;
class NSPropertyDescription;
class NSRelationshipDescription;

/// Somebody who writes down what is changed in a context, so that it can be undone: told of each change at its moment. What others
/// have changed comes as such. On the context's queue.
class ChangeRecorder {
public:
    virtual ~ChangeRecorder() = default;
    bool isRecording() const noexcept { return pauses_ == 0; }

    /// The object has come to be, new or anew.
    virtual void noteInsertion(NSManagedObject& object) = 0;
    /// It is about to be deleted, and shows its values still.
    virtual void noteDeletion(NSManagedObject& object) = 0;
    /// An attribute, or a to-one by the keys of its destinations.
    virtual void noteValue(NSManagedObject& object, NSPropertyDescription const& property, Value before, Value const& now) = 0;
    virtual void noteMember(NSManagedObject& owner, NSRelationshipDescription const& relationship, RecordKey member,
                            bool isMember) = 0;
    /// The members of an ordered relationship, or their order, are about to change.
    virtual void noteOrder(NSManagedObject& owner, NSRelationshipDescription const& relationship) = 0;

    /// A record's key is another one from now on.
    virtual void noteNewKey(RecordKey before, RecordKey now) = 0;
    /// A child has handed this up as a step, and it is about to be merged.
    virtual void noteArrival(ChangeSet const& set) = 0;
    /// Somebody else has deleted the object's record.
    virtual void noteLoss(NSManagedObject const& object) = 0;
    /// Nothing that was written down is worth anything any more.
    virtual void forgetAll() = 0;

private:
    friend class RecordingPause;
    int pauses_ = 0;
};

/// While it lives, changes are nobody's: they are not written down.
class RecordingPause {
public:
    explicit RecordingPause(ChangeRecorder* recorder) noexcept : recorder_(recorder) {
        if (recorder_) ++recorder_->pauses_;
    }
    RecordingPause(RecordingPause const&) = delete;
    RecordingPause& operator=(RecordingPause const&) = delete;
    ~RecordingPause() {
        if (recorder_) --recorder_->pauses_;
    }

private:
    ChangeRecorder* recorder_;
};

} // namespace Tessarin
