#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPrivate.h"
#include <string>

namespace Tessarin {

class SQLiteReader::SmallCache {
public:
    explicit SmallCache(SQLite::Connection& connection) : connection_(connection) {
        auto const query = connection.use("PRAGMA cache_size");
        query->step();
        usual_ = query->integer(0);
        set(-256); // KiB
    }
    SmallCache(SmallCache const&) = delete;
    SmallCache& operator=(SmallCache const&) = delete;
    ~SmallCache() {
        try {
            set(usual_);
        } catch (SQLite::Failure const&) { // the cache stays small
        }
    }

private:
    void set(std::int64_t size) { connection_.execute("PRAGMA cache_size = " + std::to_string(size)); }

    SQLite::Connection& connection_;
    std::int64_t usual_ = 0;
};

} // namespace Tessarin
