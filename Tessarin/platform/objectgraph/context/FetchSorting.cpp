#include "Tessarin/platform/objectgraph/context/FetchSortingPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include "Tessarin/platform/objectgraph/query/SearchRankPrivate.h"

#include <algorithm>
#include <iterator>

namespace Tessarin {

void FetchSorting::sort(Objects& objects, Objects more) const {
    std::ranges::move(more, std::back_inserter(objects));
    auto all = sorted(objects);
    std::ranges::transform(all, objects.begin(), [](Keyed& each) { return std::move(each.object); });
}

void FetchSorting::merge(Objects& objects, Objects more) const {
    if (more.empty()) return;
    auto added = sorted(more);
    Objects merged;
    merged.reserve(objects.size() + added.size());
    auto rest = objects.begin();
    for (auto& each : added) {
        auto const place = std::partition_point(rest, objects.end(),
                                                [&](Ref<NSManagedObject> const& other) { return isBefore(keyed(other), each); });
        merged.insert(merged.end(), std::move_iterator(rest), std::move_iterator(place));
        merged.push_back(std::move(each.object));
        rest = place;
    }
    merged.insert(merged.end(), std::move_iterator(rest), std::move_iterator(objects.end()));
    objects = std::move(merged);
}

std::vector<FetchSorting::Place> FetchSorting::merge(std::span<RecordKey const> keys, Objects more,
                                                     FunctionRef<Ref<NSManagedObject>(RecordKey)> objectOf) const {
    std::vector<Place> merged;
    merged.reserve(keys.size() + more.size());
    auto rest = keys.begin();
    auto const addUpTo = [&](std::span<RecordKey const>::iterator end) {
        for (; rest != end; ++rest) merged.push_back({*rest, nullptr});
    };
    for (auto& each : sorted(more)) {
        addUpTo(std::partition_point(rest, keys.end(), [&](RecordKey key) { return isBefore(keyed(objectOf(key)), each); }));
        merged.push_back({each.object->recordKey(), std::move(each.object)});
    }
    addUpTo(keys.end());
    return merged;
}

FetchSorting::Keyed FetchSorting::keyed(Ref<NSManagedObject> const& object) const {
    Keyed result{object, {}};
    for (auto const& descriptor : descriptors_)
        result.keys.push_back(descriptor->key() == searchRankKey ? rankOf(*object) : descriptor->keyPath().valueFrom(object));
    return result;
}

Value FetchSorting::rankOf(NSManagedObject& object) const {
    auto const [place, isNew] = ranks_.try_emplace(&object);
    if (!isNew) return place->second;
    Value text; // holds what was handed out last
    return place->second = ranking_->rankOf(object.entity(), [&](NSAttributeDescription const& attribute) {
        text = object.valueForKey(attribute.name());
        return text.text();
    });
}

std::vector<FetchSorting::Keyed> FetchSorting::keyed(Objects const& objects) const {
    std::vector<Keyed> result;
    result.reserve(objects.size());
    for (auto const& object : objects) result.push_back(keyed(object));
    return result;
}

std::vector<FetchSorting::Keyed> FetchSorting::sorted(Objects const& objects) const {
    auto all = keyed(objects);
    std::ranges::sort(all, [&](Keyed const& a, Keyed const& b) { return isBefore(a, b); });
    return all;
}

bool FetchSorting::isBefore(Keyed const& a, Keyed const& b) const {
    for (std::size_t at = 0; at < descriptors_.size(); ++at)
        if (auto const order = descriptors_[at]->compareKeys(a.keys[at], b.keys[at]); order != 0) return order < 0;
    return isBeforeByKey(a.object->recordKey(), b.object->recordKey());
}

} // namespace Tessarin
