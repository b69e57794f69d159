// What ranks are made of.
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPrivate.h"
#include "Tessarin/platform/objectgraph/query/SQLTranslationPrivate.h"
#include "Tessarin/platform/objectgraph/query/SearchRankPrivate.h"

#include <fmt/format.h>

#include <cstdlib>

namespace Tessarin {

bool SQLiteReader::searchStatistics(RankedSearch const& search, SearchStatistics& statistics) {
    auto const* index = schema_.searchOf(*search.entity);
    if (!index) return false;
    statistics = {};
    {
        auto const totals = connection_.use(fmt::format("SELECT tessarin_totals({0}) FROM {0} LIMIT 1", index->name));
        if (totals->step()) {
            auto const text = std::string(totals->text(0));
            char* rest = nullptr;
            statistics.records = std::strtoll(text.c_str(), &rest, 10);
            statistics.words = std::strtoll(rest, nullptr, 10);
        }
    }
    auto const count = connection_.use(fmt::format("SELECT count(*) FROM {0} WHERE {0} MATCH ?", index->name));
    for (std::size_t at = 0; at < search.query.words().size(); ++at) {
        bool const isBeginning = at + 1 == search.query.words().size();
        auto const expression = ftsExpression(schema_, search.attributes, {&search.query.words()[at], 1}, isBeginning);
        count->bind(1, std::string_view{expression});
        statistics.found.push_back(count->step() ? count->integer(0) : 0);
        count->reset();
    }
    return true;
}

} // namespace Tessarin
