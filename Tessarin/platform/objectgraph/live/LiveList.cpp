#include "Tessarin/platform/objectgraph/live/LiveList.h"

#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/live/LiveListInsidePrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>

namespace Tessarin {
namespace {

constexpr std::size_t windowSize = 64; // neighbours that are read together

LiveDependencies dependenciesOf(NSEntityDescription const& entity, LiveQuestion const& question, LiveOptions const& options) {
    LiveDependencies dependencies(entity);
    if (auto const& predicate = question.request().predicate())
        for (auto const& path : predicate->keyPaths()) dependencies.add(path, false);
    for (auto const& descriptor : question.descriptors()) dependencies.add(descriptor->key(), false);
    for (auto const& path : options.shownKeyPaths) dependencies.add(path, true);
    return dependencies;
}

} // namespace

LiveList::LiveList() = default;
LiveList::~LiveList() = default;

void LiveList::init(Ref<NSManagedObjectContext> context, Ref<NSFetchRequest> request, LiveOptions options) {
    auto& state = GraphAccess::state(*context);
    auto const* entity = state.link ? state.coordinator->managedObjectModel()->entityNamed(request->entityName()) : nullptr;
    if (!entity) fatal("a list of \"" + request->entityName() + "\" needs a context with a model that has this entity");
    LiveQuestion question(request, *entity, options.sectionKeyPath);
    auto dependencies = dependenciesOf(*entity, question, options);
    begin(std::make_shared<Inside>(state.link, std::move(question), std::move(dependencies), !options.sectionKeyPath.empty()),
          state.feed);
}

void LiveList::init(Ref<NSManagedObject> owner, std::string_view key) {
    auto const* property = owner->entity().propertyNamed(key);
    auto const* relationship = property ? property->asRelationship() : nullptr;
    if (!relationship || !relationship->isToMany() || !relationship->isOrdered())
        fatal("the entity " + owner->entity().name() + " has no ordered relationship \"" + std::string(key) + "\"");
    auto const context = owner->managedObjectContext();
    if (!context) fatal("a list of members needs an owner with a context");
    auto& state = GraphAccess::state(*context);
    LiveDependencies dependencies(*relationship->destinationEntity());
    begin(std::make_shared<Inside>(state.link, LiveQuestion(std::move(owner), *relationship), std::move(dependencies), false),
          state.feed);
}

void LiveList::begin(Ref<Inside> inside, ContextFeed& feed) {
    inside_ = std::move(inside);
    inside_->fetchAll();
    inside_->whole.front().count = size();
    feed.add(inside_);
}

Ref<NSManagedObject> const& LiveList::owner() const noexcept { return inside_->question.owner(); }
NSRelationshipDescription const* LiveList::relationship() const noexcept { return inside_->question.relationship(); }

std::size_t LiveList::size() const noexcept { return inside_->order.size(); }

Ref<NSManagedObject> LiveList::operator[](std::size_t at) const {
    if (at >= size()) fatal("LiveList: there is no object " + std::to_string(at) + " among " + std::to_string(size()));
    auto* context = inside_->link->contextState();
    if (!context) fatal("LiveList: its context is gone");
    auto const key = inside_->order.keyAt(at);
    if (auto living = inside_->link->find(key)) return living;
    std::vector<RecordKey> keys;
    auto const first = at / windowSize * windowSize;
    for (auto rank = first; rank < std::min(first + windowSize, size()); ++rank) keys.push_back(inside_->order.keyAt(rank));
    inside_->window = objectsWithKeys(*context, entity(), keys);
    return inside_->window[at - first];
}

std::optional<std::size_t> LiveList::indexOf(NSManagedObject const& object) const {
    if (GraphAccess::state(object).link() != inside_->link.get()) return std::nullopt;
    return inside_->order.rankOf(object.recordKey());
}

std::span<LiveSection const> LiveList::sections() const noexcept {
    return inside_->hasSections ? std::span(inside_->sections.all()) : std::span<LiveSection const>(inside_->whole);
}

bool LiveList::hasSections() const noexcept { return inside_->hasSections; }

std::size_t LiveList::firstOf(std::size_t section) const {
    if (section >= sections().size()) fatal("LiveList: there is no section " + std::to_string(section));
    return inside_->hasSections ? inside_->sections.firstRankOf(section) : 0;
}

ScopedConnection LiveList::observe(Closure<void(LiveChanges const&)> told) {
    auto observer = std::make_shared<Inside::Told>(std::move(told));
    inside_->observers.push_back(observer);
    return ScopedConnection(std::move(observer));
}

void LiveList::finish() {
    if (auto const living = context()) {
        auto& state = GraphAccess::state(*living);
        processChanges(*living, state);
        state.feed.tell(state);
    }
    inside_->work(true);
}

Ref<NSError> const& LiveList::error() const noexcept { return inside_->error; }
Ref<NSManagedObjectContext> LiveList::context() const { return inside_->link->context(); }
NSEntityDescription const& LiveList::entity() const noexcept { return inside_->question.entity(); }

} // namespace Tessarin
