#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/notifications/NSNotification.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include <string>
#include <vector>

namespace Tessarin {

/// Posted once for a save in which a merge policy gave up values, whether this save's or those that somebody else had saved
/// before: after the save, on the queue of the context that saved and whose policy decided, with it as the object. A root
/// context leaves it to its newest child of the main queue, if what it saved came from below and there is one: a window hears
/// it where it edits. Posted for records that were changed on both sides and for values that had to be unique. Nothing is
/// gathered while nobody observes that name. The userInfo is made when it is asked for, while it is posted; `overruledChanges`
/// reads it.
inline constexpr char const* NSManagedObjectContextDidOverruleChangesNotification =
    "NSManagingContextDidOverruleChangesNotification";
/// In its userInfo: a list of dictionaries with the following keys.
inline constexpr char const* NSOverruledChangesKey = "overruled";
inline constexpr char const* NSOverruledObjectKey = "object";
inline constexpr char const* NSOverruledAttributeKey = "attribute";
inline constexpr char const* NSOverruledLostValueKey = "lost";
inline constexpr char const* NSOverruledWonValueKey = "won";
inline constexpr char const* NSOverruledIsOwnKey = "isOwn";

/// What a merge policy gave up of one record.
struct OverruledChange {
    /// Of the context that posts; deleted where the record is gone. Where a new object gave way to one with the same unique
    /// values: that one.
    Ref<NSManagedObject> object;
    /// Or the to-one; empty: it was the record's deletion that was given up.
    std::string attribute;
    Value lost; // to-ones as objects; absent: none
    Value won; // likewise; absent, too, where the record is gone
    /// Whose it was: this save's, or somebody else's who had saved before.
    bool isOwn = true;
};

/// What such a notification tells. While it is posted; any other notification tells nothing.
///
///     watch(NSManagedObjectContextDidOverruleChangesNotification, [](auto const& notification) {
///         for (auto const& each : overruledChanges(*notification))
///             if (each.isOwn) tell(each.attribute + " was changed elsewhere: " + each.won.description());
///     });
TESSARIN_API std::vector<OverruledChange> overruledChanges(NSNotification const& notification);

} // namespace Tessarin
