// Fetching from what the store has answered before, which the context then corrects.
#include "Tessarin/platform/objectgraph/context/FetchOperationPrivate.h"

#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"

#include <algorithm>
#include <utility>

namespace Tessarin {
namespace {

constexpr std::size_t mostMerged = 64; // into keys, each with some look-ups; for more it takes rows

} // namespace

StoreQuery FetchOperation::queryBeforehand(std::size_t surplus) const {
    auto query = this->query();
    query.wantsKeysOnly = !mustLookAtAll_ && (!hasUnsaved() || unsaved_->count() <= mostMerged);
    if (isUntouched() && surplus == 0) return query;
    bool const isCut = query.limit != 0 && !mustLookAtAll_;
    query.offset = 0;
    query.limit = isCut ? countUpToLast(request_) + std::max<std::size_t>(surplus, 16) : 0;
    if (mustLookAtAll_) query.predicate = nullptr;
    return query;
}

/// Whether the answer for a record depends on others, too, of which the context may not have heard that they were saved.
bool FetchOperation::looksAtOthers() const {
    auto const leadsAway = [&](KeyPath const& path) {
        auto const& components = path.components();
        auto const* property = components.size() == 1 ? entity_.propertyNamed(components.front()) : nullptr;
        return !property || (property->asRelationship() && property->asRelationship()->isToMany());
    };
    auto const& sorts = request_.sortDescriptors();
    return std::ranges::any_of(sorts, [&](auto const& sort) { return leadsAway(sort->keyPath()); }) ||
           (request_.predicate() &&
            std::ranges::any_of(request_.predicate()->keyPaths(), [&](auto const& path) { return leadsAway(KeyPath(path)); }));
}

bool FetchOperation::list(StoreQuery const& query, StoreAnswer&& answer, bool canAsk, FetchedObjects& list, Ref<NSError>& error) {
    if (!committed_.empty() && (!request_.includesPendingChanges() || looksAtOthers())) return false;
    bool const isWhole = !answer.complete || (query.limit == 0 && query.offset == 0);
    bool const hasAll = !query.predicate && isWhole && !(query.wantsKeysOnly && answer.complete);
    if (mustLookAtAll_ && !hasAll) return false;
    if (!query.predicate && request_.predicate()) mustLookAtAll_ = true; // what was given is not filtered
    bool const isAsAsked = query.limit == request_.fetchLimit() && query.offset == request_.fetchOffset();
    if (answer.complete && query.wantsKeysOnly) {
        for (auto const& row : answer.rows) answer.keys.push_back(row->key());
        if (!isUntouched()) return layOver(query, std::move(answer.keys), canAsk, list);
        if (!isAsAsked) cut(answer.keys);
        list.keys_ = std::move(answer.keys);
        settle(list);
        return true;
    }
    auto const given = answer.rows.size();
    if (!isWhole && query.offset != 0 && !isUntouched()) return false;
    removeUnsaved(answer.rows);
    if (!isWhole && !isUntouched() && !isEnough(query, given, answer.rows.size())) return false;
    if (isUntouched() && answer.complete && !isAsAsked) cut(answer.rows);
    error = handOn(answer, [&](std::span<Ref<NSManagedObject>> run, std::size_t total) {
        list.keys_.reserve(total);
        for (auto const& object : run) add(object, list);
    });
    if (!error && showsOld_) return list = {}, false;
    settle(list);
    return true;
}

bool FetchOperation::isEnough(StoreQuery const& query, std::size_t given, std::size_t left) const {
    return query.limit == 0 || given < query.limit || left >= countUpToLast(request_);
}

bool FetchOperation::layOver(StoreQuery const& query, std::vector<RecordKey> keys, bool canAsk, FetchedObjects& list) {
    if (query.offset != 0) return false; // the first ones are missing
    auto const given = keys.size();
    auto const changed = unsaved_->stored();
    std::erase_if(keys, [&](RecordKey key) {
        auto const range = std::ranges::lower_bound(changed, key, {}, &KeyRange::last);
        return range != changed.end() && range->first <= key;
    });
    if (!isEnough(query, given, keys.size())) return false;
    if (prepareRanking()) return false;
    auto more = fittingUnsaved();
    if (showsOld_ || (canAsk && more.size() > mostMerged)) return false;
    // By rows that were read now: an object may not have heard yet of what others saved. Those in the middle are asked for again.
    Objects held;
    auto const objectOf = [&](RecordKey key) {
        auto row = reader_.row(entity_, key);
        return held.emplace_back(row ? objectWithRow(context_, std::move(row), {}) : objectWithKey(context_, entity_, key));
    };
    auto places = sorting().merge(keys, std::move(more), objectOf);
    cut(places);
    list.keys_.reserve(places.size());
    for (auto const& [key, object] : places) object ? add(object, list) : list.keys_.push_back(key);
    settle(list);
    return true;
}

} // namespace Tessarin
