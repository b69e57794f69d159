#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/live/LiveChanges.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/ScopedConnection.h"
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

class ContextFeed;

struct LiveOptions {
    /// Results with the same value there are a section. Sections come in the order of the request's first descriptor where that
    /// has this key, else ascending by that value, before the request's order. Empty: no sections.
    std::string sectionKeyPath = {};
    /// Key paths through to-ones and to-manys that whoever shows the list shows beside the results' own properties
    /// ("author.name"): results count as changed when something else stands at their end.
    std::vector<std::string> shownKeyPaths = {};
};

/// The results of a fetch request, kept up to date: an ordered list that follows the context's own changes, its children's
/// saves, what it merges and reads again, and tells its observers, once a turn, step by step how it changed. It agrees with
/// what the context would fetch at that moment, unsaved changes included; `includesPendingChanges` is not looked at.
///
/// It holds the records' keys with what they are sorted by, and objects only where somebody looks: a change costs what that
/// change is, not what the list is long. Exceptions: a request with a limit or an offset is fetched again after a change of its
/// entity, a path over a relationship without inverse, or a deletion beyond the contexts of what a path leads over, likewise
/// fetches the list again. What a large save brings is told in several parts, each of them some milliseconds of the queue's time,
/// each a list in order; `finish` brings the rest at once.
///
/// On the context's queue; may be released anywhere. The context is not kept alive.
///
///     auto const request = make<NSFetchRequest>("Book");
///     request->setSortDescriptors({NSSortDescriptor::sortDescriptorWithKey("title")});
///     auto const books = make<LiveList>(context, request, LiveOptions{.sectionKeyPath = "author.name"});
///     auto const connection = books->observe([](LiveChanges const& changes) { for (auto const& step : changes.steps()) … });
class TESSARIN_API LiveList : public NSObject {
public:
    std::size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }
    /// `at` is less than `size()`; fatal otherwise, and when the context is gone. Its neighbours are read with it.
    Ref<NSManagedObject> operator[](std::size_t at) const;
    /// Where the object stands; absent for one that is not in the list.
    std::optional<std::size_t> indexOf(NSManagedObject const& object) const;

    /// One for all without a section key path. The span is valid until the list changes.
    std::span<LiveSection const> sections() const noexcept;
    Ref<NSManagedObject> object(std::size_t section, std::size_t row) const { return (*this)[firstOf(section) + row]; }
    bool hasSections() const noexcept;
    /// How many results stand before a section.
    std::size_t firstOf(std::size_t section) const;

    /// Calls `told` after each change, on the context's queue, with the list as it is after it. Observers are called in the order
    /// in which they came.
    ScopedConnection observe(Closure<void(LiveChanges const&)> told);
    /// Brings and tells what is still on its way.
    void finish();
    /// Why the list could not be fetched, or not be followed since; null when it is right. It is tried again after the next
    /// change that may concern it.
    Ref<NSError> const& error() const noexcept;
    Ref<NSManagedObjectContext> context() const;
    /// Of a list of members: whose, and by which relationship; else null.
    Ref<NSManagedObject> const& owner() const noexcept;
    NSRelationshipDescription const* relationship() const noexcept;
    NSEntityDescription const& entity() const noexcept;

    ~LiveList() override;

protected:
    LiveList();
    using NSObject::init;
    /// Fatal for an entity that the model does not have. What the store cannot read leaves the list empty, with an `error`.
    virtual void init(Ref<NSManagedObjectContext> context, Ref<NSFetchRequest> request, LiveOptions options = {});

    /// The members of an ordered relationship, in its order. Keeps the owner; empty once that is deleted. A change of the owner
    /// costs what its list is long. Fatal for a key that is no ordered relationship.
    virtual void init(Ref<NSManagedObject> owner, std::string_view relationship);

private:
    class Inside;
    void begin(Ref<Inside> inside, ContextFeed& feed);
    Ref<Inside> inside_;
};

} // namespace Tessarin
