#pragma once
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"

namespace Tessarin {

/// Whether a to-many relationship is stored as the to-one at its other end.
inline bool isKeptInInverse(NSRelationshipDescription const& relationship) {
    auto const* inverse = relationship.inverseRelationship();
    return relationship.isReciprocal() && !inverse->isToMany() && !inverse->isTransient();
}

/// Of two to-many relationships that are each other's inverse, one names and writes their links: the first by name. Every
/// other to-many writes its own, also a relationship that is its own inverse: there each end has its row.
inline bool writesItsLinks(NSRelationshipDescription const& relationship) {
    auto const* inverse = relationship.inverseRelationship();
    if (!relationship.isReciprocal() || inverse == &relationship || !inverse->isToMany() || inverse->isTransient()) return true;
    auto const place = [](NSRelationshipDescription const& r) {
        return std::pair(std::string_view(r.entity()->name()), std::string_view(r.name()));
    };
    return place(relationship) < place(*inverse);
}

} // namespace Tessarin
