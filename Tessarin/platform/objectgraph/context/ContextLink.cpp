#include "Tessarin/platform/objectgraph/context/ContextLinkPrivate.h"

#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"

namespace Tessarin {
namespace {

/// The class for an entity's objects by its stated name: "Module.C" is Module::C, "C" and ".C" are C.
Class const& classFor(NSEntityDescription const& entity) {
    auto const& name = entity.managedObjectClassName();
    auto const* found = classNamed(name.starts_with('.') ? std::string_view{name}.substr(1) : std::string_view{name});
    if (!found || !found->isSubclassOf(classOf<NSManagedObject>())) {
        registerClass<NSManagedObject>();
        return classOf<NSManagedObject>();
    }
    return *found;
}

} // namespace

ContextLink::ContextLink(Ref<NSManagedObjectContext> const& context, ContextState& state,
                         Ref<NSPersistentStoreCoordinator> coordinator)
    : context_(context),
      state_(&state),
      coordinator_(std::move(coordinator)),
      space_(coordinator_->space()),
      classes_(space_->model().entities().size()) {}

void retainObject(ContextLink& link, std::uint32_t count) noexcept {
    link.references_.fetch_add(count, std::memory_order_relaxed);
}
void releaseObject(ContextLink& link) noexcept {
    if (link.references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete &link;
}

FaultBatch::FaultBatch(ContextLink& owner, NSEntityDescription const& entity)
    : link(owner), rootEntity(entity.rootEntity()), number(owner.nextBatchNumber()) {
    retainObject(link);
}
FaultBatch::~FaultBatch() {
    if (!isLone()) releaseObject(link);
}

bool FaultBatch::mayHold(NSManagedObject& object) const {
    auto const& other = *GraphAccess::state(object).batch;
    return other.isLone() || other.number > number;
}

void FaultBatch::hold(std::span<Ref<NSManagedObject> const> objects) {
    for (auto const& object : objects)
        if (mayHold(*object)) held.push_back(object);
}

void retainObject(FaultBatch& batch, std::uint32_t count) noexcept {
    if (batch.isLone()) return retainObject(batch.link, count);
    batch.references.fetch_add(count, std::memory_order_relaxed);
}
void releaseObject(FaultBatch& batch) noexcept {
    if (batch.isLone()) return releaseObject(batch.link);
    if (batch.references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete &batch;
}

Ref<NSManagedObject> ContextLink::find(RecordKey key) const {
    auto object = registered(key);
    if (object || key >= 0) return object;
    auto const now = permanentFor(key);
    return now == key ? nullptr : registered(now);
}

RecordKey ContextLink::permanentFor(RecordKey temporary) const {
    if (auto const own = aliases_.find(temporary)) return own;
    auto const shared = coordinator_->promotions().permanentKey(temporary);
    return shared != 0 ? shared : temporary;
}

Ref<NSManagedObject> ContextLink::registered(RecordKey key) const {
    std::lock_guard const hold(mutex_);
    auto* object = objects_.find(key);
    // An object whose last reference has just gone waits for the lock to leave; it is not given out again.
    return object ? std::static_pointer_cast<NSManagedObject>(object->weak_from_this().lock()) : nullptr;
}

void ContextLink::findAll(std::span<RowRef const> rows, std::span<Ref<NSManagedObject>> objects) const {
    std::lock_guard const hold(mutex_);
    for (std::size_t at = 0; at < rows.size(); ++at)
        if (auto* object = objects_.find(current(rows[at]->key())))
            objects[at] = std::static_pointer_cast<NSManagedObject>(object->weak_from_this().lock());
}

void ContextLink::addAll(std::span<Ref<NSManagedObject>> objects) {
    std::vector<Ref<NSManagedObject>> replaced; // to be released when the lock is not held
    std::lock_guard const hold(mutex_);
    for (auto& object : objects) {
        auto place = objects_.place(GraphAccess::state(*object).key);
        auto* const present = place.value();
        if (present == object.get()) continue;
        if (auto living = present ? present->weak_from_this().lock() : nullptr)
            replaced.push_back(std::exchange(object, std::static_pointer_cast<NSManagedObject>(std::move(living))));
        else
            place.set(*object);
    }
}

void ContextLink::add(NSManagedObject& object, RecordKey key) {
    std::lock_guard const hold(mutex_);
    objects_.set(key, &object);
}

void ContextLink::remove(NSManagedObject& object, RecordKey key) noexcept {
    std::lock_guard const hold(mutex_);
    objects_.remove(key, &object);
}

void ContextLink::rename(NSManagedObject& object, RecordKey before, RecordKey now) {
    std::lock_guard const hold(mutex_);
    objects_.remove(before, &object);
    objects_.set(now, &object);
}

std::size_t ContextLink::count() const {
    std::lock_guard const hold(mutex_);
    return objects_.size();
}

std::vector<Ref<NSManagedObject>> ContextLink::all(NSEntityDescription const* entity) const {
    std::vector<Ref<NSManagedObject>> result;
    std::lock_guard const hold(mutex_);
    if (!entity) result.reserve(objects_.size());
    objects_.forEach([&](RecordKey, NSManagedObject* object) {
        if (entity && &GraphAccess::state(*object).layout->entity() != entity) return;
        if (auto kept = std::static_pointer_cast<NSManagedObject>(object->weak_from_this().lock()))
            result.push_back(std::move(kept));
    });
    return result;
}

Class const& ContextLink::classOfObjects(NSEntityDescription const& entity) {
    auto const*& known = classes_[entity.index()];
    if (!known) known = &classFor(entity);
    return *known;
}

Ref<NSManagedObject> ContextLink::makeObject(NSEntityDescription const& entity, RecordKey key, FaultBatchRef batch) {
    auto object = std::static_pointer_cast<NSManagedObject>(classOfObjects(entity).makeObject());
    auto& state = GraphAccess::state(*object);
    state.batch = batch ? std::move(batch) : lone();
    state.layout = &space_->layoutOf(entity);
    state.key = key;
    return object;
}

} // namespace Tessarin
