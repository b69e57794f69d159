#pragma once
#include "Tessarin/Export.h"
#include <string>
#include <vector>

namespace Tessarin {

/// What came of the salvage of a damaged store.
struct TESSARIN_API SalvageReport {
    /// The records of an entity without a parent, with those of its sub-entities.
    struct Entity {
        std::string name;
        std::size_t saved = 0;
        std::size_t missing = 0;  // that an index or a link names
        bool mayMissMore = false; // a part could not be read, and no index told what stood in it
        std::size_t cutLinks = 0; // of saved records, to records that are not there
        std::size_t clearedRecords = 0; // whose unique values another record has: these were left out
    };
    std::vector<Entity> entities;       // in the order of the model
    std::size_t lostPlaces = 0;         // links that were saved without their place in an order
    std::size_t unplacedPages = 0;      // pages full of records that could be of one entity or another, and were left out

    /// Whether everything is there.
    bool isComplete() const noexcept;
    /// The same in words, a sentence for each finding; none when all is there.
    std::vector<std::string> sentences() const;
};

} // namespace Tessarin
