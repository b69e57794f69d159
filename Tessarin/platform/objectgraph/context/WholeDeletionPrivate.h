#pragma once
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"

namespace Tessarin {

/// Deletes every record of a root context's store at once, without making an object of any, and posts the did-save
/// notification, whose objects are made when somebody asks for them. On the context's queue. False, and nothing was deleted: the
/// objects have to go one by one, because a class of them has something to say about it (`prepareForDeletion`, `willSave`),
/// because the context knows some of them, or because it has changes that cannot be saved.
TESSARIN_API bool deletesEverything(NSManagedObjectContext& context, Ref<NSError>& error);

} // namespace Tessarin
