#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteKeyRunsPrivate.h"

namespace Tessarin {
namespace {

constexpr std::size_t listSize = 100;
constexpr std::size_t shortestRun = 4;

std::size_t lengthOfRun(std::span<RecordKey const> keys) {
    std::size_t length = 1;
    while (length < keys.size() && keys[length] == keys[length - 1] + 1) ++length;
    return length;
}

std::string listOfParameters() {
    std::string list = " IN (?";
    for (std::size_t at = 1; at < listSize; ++at) list += ", ?";
    return list + ")";
}

} // namespace

void runForKeys(SQLite::Connection& connection, std::string const& sql, std::span<RecordKey const> keys) {
    forKeys(connection, sql, keys, [](SQLite::Statement& statement) { statement.run(); });
}

void forKeys(SQLite::Connection& connection, std::string const& sql, std::span<RecordKey const> keys,
             FunctionRef<void(SQLite::Statement&)> each) {
    std::vector<RecordKey> singles;
    while (!keys.empty()) {
        auto const length = lengthOfRun(keys);
        if (length >= shortestRun) {
            auto const statement = connection.use(sql + " BETWEEN ? AND ?");
            statement->bind(1, keys.front());
            statement->bind(2, keys[length - 1]);
            each(*statement);
            statement->reset();
        } else {
            singles.insert(singles.end(), keys.begin(), keys.begin() + static_cast<std::ptrdiff_t>(length));
        }
        keys = keys.subspan(length);
    }
    std::size_t at = 0;
    if (singles.size() >= listSize) {
        auto const statement = connection.use(sql + listOfParameters());
        for (; singles.size() - at >= listSize; at += listSize) {
            for (std::size_t place = 0; place < listSize; ++place)
                statement->bind(static_cast<int>(place) + 1, singles[at + place]);
            each(*statement);
            statement->reset();
        }
    }
    if (at == singles.size()) return;
    auto const statement = connection.use(sql + " = ?");
    for (; at < singles.size(); ++at) {
        statement->bind(1, singles[at]);
        each(*statement);
        statement->reset();
    }
}

} // namespace Tessarin
