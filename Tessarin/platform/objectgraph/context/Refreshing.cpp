#include "Tessarin/platform/objectgraph/context/RefreshingPrivate.h"

#include "Tessarin/platform/objectgraph/context/ContextNotificationsPrivate.h"
#include "Tessarin/platform/objectgraph/context/MergingPrivate.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"

#include <map>
#include <unordered_map>

namespace Tessarin {
namespace {

bool canBeRead(ContextState const& context, NSManagedObject const& object) {
    auto const& state = GraphAccess::state(object);
    return state.link() == context.link.get() && !state.has(ObjectState::Inserted);
}

void show(ContextState& context, NSManagedObject& object, RowRef row) {
    if (!row) return noteGone(context, object);
    auto& state = GraphAccess::state(object);
    state.row = std::move(row);
    state.clear(ObjectState::Gone);
    context.values.note(object);
    if (!state.extras) return;
    state.extras->isRecordGone = false;
    for (auto& toMany : state.extras->toMany) toMany.doubt();
}

} // namespace

void refreshObjects(ContextState& context, std::span<Ref<NSManagedObject> const> objects) {
    std::map<NSEntityDescription const*, std::vector<RecordKey>> keys; // by root entity
    for (auto const& object : objects)
        if (canBeRead(context, *object)) keys[object->entity().rootEntity()].push_back(object->recordKey());
    std::unordered_map<RecordKey, RowRef> rows;
    RecordReader const reader(context);
    for (auto const& [root, some] : keys)
        reader.rows(
            *root, some, [&](RowRef row) { rows.emplace(row->key(), std::move(row)); }, true);
    auto& promotions = context.coordinator->promotions();
    for (auto const& object : objects) {
        if (!canBeRead(context, *object)) continue;
        auto const key = object->recordKey();
        auto const found = rows.find(key);
        bool const mayHaveOtherKey = found == rows.end() && (key < 0 || promotions.temporaryKey(key) != 0);
        noteNews(context, *object, ContextNews::Refreshed);
        show(context, *object,
             mayHaveOtherKey       ? reader.row(object->entity(), key, true)
             : found == rows.end() ? nullptr
                                   : found->second);
    }
}

} // namespace Tessarin
