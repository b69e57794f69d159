#pragma once
#include "CatalogueStore.h"

namespace Catalogue {

// Three questions that a user might ask, answered by fetches and printed.
void printInFirefoxButNotInSafari(CatalogueStore& store);
void printMostRecentBrowsers(CatalogueStore& store);
void printSupportTable(CatalogueStore& store);

} // namespace Catalogue
