#include "Tessarin/platform/sqlite/WordTokenizer.h"

#include "Tessarin/platform/foundation/predicates/SearchWords.h"

#include <sqlite3.h>

#include <new>

namespace Tessarin::SQLite {
namespace {

using TakeToken = int (*)(void* context, int flags, char const* token, int size, int begin, int end);

int makeTokenizer(void*, char const**, int, Fts5Tokenizer** made) {
    static char one; // it has no state
    *made = reinterpret_cast<Fts5Tokenizer*>(&one);
    return SQLITE_OK;
}

void deleteTokenizer(Fts5Tokenizer*) {}

/// An exception must not pass through SQLite.
int tokenize(Fts5Tokenizer*, void* context, int flags, char const* text, int size, TakeToken take) noexcept try {
    if ((flags & FTS5_TOKENIZE_QUERY) != 0) return size == 0 ? SQLITE_OK : take(context, 0, text, size, 0, size);
    int code = SQLITE_OK;
    forEachSearchWord({text ? text : "", static_cast<std::size_t>(size)}, [&](SearchWord const& word) {
        code = take(context, 0, word.folded.data(), static_cast<int>(word.folded.size()), static_cast<int>(word.begin),
                    static_cast<int>(word.end));
        return code == SQLITE_OK;
    });
    return code;
} catch (...) {
    return SQLITE_NOMEM;
}

void totals(Fts5ExtensionApi const* api, Fts5Context* fts, sqlite3_context* result, int, sqlite3_value**) {
    sqlite3_int64 records = 0, words = 0;
    auto code = api->xRowCount(fts, &records);
    if (code == SQLITE_OK) code = api->xColumnTotalSize(fts, -1, &words);
    if (code != SQLITE_OK) return sqlite3_result_error_code(result, code);
    auto* text = sqlite3_mprintf("%lld %lld", records, words);
    text ? sqlite3_result_text(result, text, -1, sqlite3_free) : sqlite3_result_error_nomem(result);
}

fts5_api* apiOf(sqlite3* connection) {
    fts5_api* api = nullptr;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(connection, "SELECT fts5(?1)", -1, &statement, nullptr) == SQLITE_OK) {
        sqlite3_bind_pointer(statement, 1, &api, "fts5_api_ptr", nullptr);
        sqlite3_step(statement);
    }
    sqlite3_finalize(statement);
    return api;
}

} // namespace

bool addWordTokenizer(sqlite3* connection) noexcept {
    auto* const api = apiOf(connection);
    if (!api || api->iVersion < 2) return false;
    fts5_tokenizer words{makeTokenizer, deleteTokenizer, tokenize};
    return api->xCreateTokenizer(api, "tessarin", nullptr, &words, nullptr) == SQLITE_OK &&
           api->xCreateFunction(api, "tessarin_totals", nullptr, totals, nullptr) == SQLITE_OK;
}

} // namespace Tessarin::SQLite
