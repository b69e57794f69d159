#pragma once
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include <string>
#include <string_view>

namespace Tessarin {

/// `key` as a message shows it: its first 100 bytes.
std::string shownKey(std::string_view key);

/// `; the nearest: "author", "authors" and "owner"`: up to three keys of the entity and its sub-entities that are spelt most
/// like `key`, letters of either case alike. Empty for an entity without properties.
std::string nearestKeys(NSEntityDescription const& entity, std::string_view key);

} // namespace Tessarin
