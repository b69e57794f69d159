#include "Tessarin/platform/objectgraph/persistence/migration/ModelMappingPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/RowLayout.h"

#include <algorithm>
#include <map>
#include <unordered_set>

namespace Tessarin {
namespace {

/// Finds for each new thing, by its place, the old one that it was.
template <class Thing> class Matching {
public:
    Matching(std::span<Thing const* const> old, std::span<Thing const* const> now) : now_(now), sources_(now.size()) {
        for (auto const* each : sortedByName(old)) {
            oldByName_.emplace(each->name(), each);
            oldByIdentifier_.emplace(each->renamingIdentifier(), each);
        }
        for (std::size_t at = 0; at < now.size(); ++at) places_.emplace(now[at]->name(), at);
    }

    std::vector<Thing const*> run() && {
        match([this](Thing const& thing) {
            auto const* old = named(thing.name());
            return old && statesFormerName(thing) && old->renamingIdentifier() == thing.renamingIdentifier() ? old : nullptr;
        });
        match([this](Thing const& thing) { return statesFormerName(thing) ? named(thing.renamingIdentifier()) : nullptr; });
        match([this](Thing const& thing) { return statesFormerName(thing) ? identified(thing.renamingIdentifier()) : nullptr; });
        match([this](Thing const& thing) { return named(thing.name()); });
        match([this](Thing const& thing) { return statesFormerName(thing) ? nullptr : identified(thing.name()); });
        return std::move(sources_);
    }

private:
    static std::vector<Thing const*> sortedByName(std::span<Thing const* const> things) {
        std::vector<Thing const*> sorted(things.begin(), things.end());
        std::ranges::sort(sorted, {}, [](auto const* each) -> auto const& { return each->name(); });
        return sorted;
    }
    static bool statesFormerName(Thing const& thing) {
        return !thing.renamingIdentifier().empty() && thing.renamingIdentifier() != thing.name();
    }
    Thing const* named(std::string const& name) const {
        auto const found = oldByName_.find(name);
        return found == oldByName_.end() ? nullptr : found->second;
    }
    /// The first by name that nobody has yet.
    Thing const* identified(std::string const& identifier) const {
        for (auto [each, end] = oldByIdentifier_.equal_range(identifier); each != end; ++each)
            if (!taken_.contains(each->second)) return each->second;
        return nullptr;
    }
    template <class Find> void match(Find find) {
        for (auto const& [name, place] : places_) {
            if (sources_[place]) continue;
            auto const* old = find(*now_[place]);
            if (old && taken_.insert(old).second) sources_[place] = old;
        }
    }

    std::span<Thing const* const> now_;
    std::vector<Thing const*> sources_;
    std::map<std::string_view, std::size_t> places_; // of the new things, by name
    std::map<std::string_view, Thing const*> oldByName_;
    std::multimap<std::string_view, Thing const*> oldByIdentifier_;
    std::unordered_set<Thing const*> taken_;
};

std::vector<NSEntityDescription const*> entitiesOf(NSManagedObjectModel const& model) {
    std::vector<NSEntityDescription const*> all;
    for (auto const& entity : model.entities()) all.push_back(entity.get());
    return all;
}

} // namespace

bool isStored(NSPropertyDescription const& property) {
    auto const* attribute = property.asAttribute();
    CellType type{};
    return !property.isTransient() && (!attribute || (!attribute->isDerived() && cellTypeOf(attribute->attributeType(), type)));
}

NSRelationshipDescription const* storedInverseOf(NSRelationshipDescription const& relationship) {
    auto const* inverse = relationship.isReciprocal() ? relationship.inverseRelationship() : nullptr;
    return inverse && !inverse->isTransient() ? inverse : nullptr;
}

ModelMapping::ModelMapping(NSManagedObjectModel const& from, NSManagedObjectModel const& to)
    : from_(from), to_(to), targets_(from.entities().size()), propertySources_(to.entities().size()) {
    auto const old = entitiesOf(from), now = entitiesOf(to);
    sources_ = Matching<NSEntityDescription>(old, now).run();
    for (auto const* entity : now) {
        auto& sources = propertySources_[entity->index()];
        auto const* source = sourceOf(*entity);
        if (source)
            sources = Matching<NSPropertyDescription>(source->properties(), entity->properties()).run();
        else
            sources.resize(entity->properties().size());
        if (source) targets_[source->index()] = entity;
    }
    dropsEntities_ = std::ranges::find(targets_, nullptr) != targets_.end();
}

std::vector<NSRelationshipDescription const*> ModelMapping::sourcesOf(NSRelationshipDescription const& relationship) const {
    std::vector<NSRelationshipDescription const*> found;
    for (auto const& entity : to_.entities()) {
        if (!entity->isKindOf(relationship.entity())) continue;
        auto const* source = sourceOf(*entity, relationship);
        auto const* old = source ? source->asRelationship() : nullptr;
        if (old && !old->isTransient() && std::ranges::find(found, old) == found.end()) found.push_back(old);
    }
    return found;
}

bool ModelMapping::takesAllOf(NSRelationshipDescription const& old, NSRelationshipDescription const& relationship) const {
    return std::ranges::all_of(to_.entities(), [&](auto const& entity) {
        auto const* source = sourceOf(*entity);
        if (!source || !source->isKindOf(old.entity())) return true;
        return entity->isKindOf(relationship.entity()) && sourceOf(*entity, relationship) == &old;
    });
}

std::vector<NSEntityDescription const*> ModelMapping::strayedBetween(NSRelationshipDescription const& old,
                                                                     NSRelationshipDescription const& relationship) const {
    std::vector<NSEntityDescription const*> strayed;
    for (auto const& entity : to_.entities()) {
        auto const* source = sourceOf(*entity);
        if (source && source->isKindOf(old.destinationEntity()) && !entity->isKindOf(relationship.destinationEntity()))
            strayed.push_back(entity.get());
    }
    return strayed;
}

} // namespace Tessarin
