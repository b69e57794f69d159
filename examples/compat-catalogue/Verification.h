#pragma once
#include "CatalogueStore.h"
#include "DataFile.h"

namespace Catalogue {

/// Compares every count of the store with the data's. Gives a line for each that differs.
std::vector<std::string> differences(CatalogueStore& store, Census const& census);

} // namespace Catalogue
