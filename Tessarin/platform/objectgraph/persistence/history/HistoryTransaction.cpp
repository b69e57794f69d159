#include "Tessarin/platform/objectgraph/persistence/history/HistoryTransaction.h"

#include "Tessarin/platform/objectgraph/persistence/stores/IdentityTablePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStoreCoordinator.h"

#include <charconv>
#include <fmt/format.h>

namespace Tessarin {

std::string HistoryToken::text() const { return fmt::format("{:x}-{}", history, transaction); }

std::optional<HistoryToken> HistoryToken::fromText(std::string_view text) {
    HistoryToken token;
    auto const* const end = text.data() + text.size();
    auto const [dash, noName] = std::from_chars(text.data(), end, token.history, 16);
    if (noName != std::errc{} || dash == end || *dash != '-') return {};
    auto const [stop, noNumber] = std::from_chars(dash + 1, end, token.transaction);
    if (noNumber != std::errc{} || stop != end || token.history <= 0 || token.transaction < 0) return {};
    return token;
}

std::vector<Ref<NSManagedObjectID>> HistoryChange::objectIDs(NSPersistentStoreCoordinator& coordinator) const {
    std::vector<Ref<NSManagedObjectID>> ids;
    if (extent == Extent::Range) return ids;
    for (auto key = first; key <= last; ++key) ids.push_back(coordinator.identities().identity(*entity, key));
    return ids;
}

} // namespace Tessarin
