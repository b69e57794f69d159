#pragma once
#include "Tessarin/Export.h"
#include <cstddef>
#include <string>
#include <vector>

namespace Tessarin {

/// How a request is answered, for whoever wonders why it takes long: see `NSManagedObjectContext::explain`.
/// The SQL holds no values; conditions in `inMemory` read as the predicate does.
struct TESSARIN_API FetchExplanation {
    std::string sql;                   // with a "?" for each bound value; empty for a store without SQL
    std::size_t boundCount = 0;
    std::vector<std::string> plan;     // SQLite's own words, a step a line, steps within another one indented by two blanks
    std::vector<std::string> indexes;  // names of the indexes that it uses, each once
    std::vector<std::string> inMemory; // what is left to be done with the records that were read, and why; a sentence each

    /// All of it in lines, to be printed.
    std::string description() const;
};

} // namespace Tessarin
