#pragma once
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"

namespace Tessarin {

class NSFetchRequest;

/// Adds the records whose answer to a request may be turned by what is not saved of other records (`sets`, and the context's
/// own changes), found by going back from
/// those along the request's key paths: changes of entities that no path leads to cost nothing. False when that cannot be said,
/// and every record may be turned.
bool addTurnedRecords(ContextState const& context, RecordReader const& reader, ChangeSets const& sets,
                      NSFetchRequest const& request, NSEntityDescription const& entity, KeySet& keys);

} // namespace Tessarin
