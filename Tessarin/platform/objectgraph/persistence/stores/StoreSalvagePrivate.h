#pragma once
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/stores/SalvageReport.h"
#include <sys/types.h>

namespace Tessarin {

/// Reads what can be read of the store in the file `damaged` into the new file `fresh`, of the model that the file describes;
/// where that cannot be read either, of `model`. Changes nothing of `damaged`; makes a working copy beside `fresh` and removes
/// it. Throws ErrorException when nothing can be read, when `fresh` exists, or for what is no damage; then nothing is left
/// behind.
TESSARIN_API SalvageReport salvageStore(std::string const& damaged, std::string const& fresh,
                                        Ref<NSManagedObjectModel> const& model, mode_t mode = 0600);

} // namespace Tessarin
