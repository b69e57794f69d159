#pragma once
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/objectgraph/persistence/history/HistoryTransaction.h"
#include "Tessarin/platform/runtime/Closure.h"

namespace Tessarin {

/// Asks for the transactions of a store, oldest first.
///
///     auto const news = context->executeRequest(HistoryRequest{.after = token}, error);
///     for (auto const& transaction : news) show(transaction.author, transaction.changes.size());
struct HistoryRequest {
    /// Absent: from the oldest on that is still known.
    std::optional<HistoryToken> after = {};
    /// Those that were saved since then, by the clock of who saved them.
    std::optional<NSDate> since = {};
    /// About "author", "context", "process" (a number), "date" and "isOwn"; null: all.
    Ref<NSPredicate> predicate = {};
    /// 0: all.
    std::size_t limit = 0;
};

/// Either the transactions or an error.
using HistoryCompletion = Closure<void(std::vector<HistoryTransaction> transactions, Ref<NSError> error)>;

} // namespace Tessarin
