#include "Tessarin/platform/objectgraph/query/SQLFunctionsPrivate.h"

#include "Tessarin/platform/foundation/predicates/PredicateComparisonPrivate.h"
#include "Tessarin/platform/foundation/predicates/SearchWords.h"

#include <sqlite3.h>

#include <memory>

namespace Tessarin {
namespace {

bool isText(sqlite3_value* value) { return sqlite3_value_type(value) == SQLITE_TEXT; }

std::string_view textOf(sqlite3_value* value) {
    auto const* text = reinterpret_cast<char const*>(sqlite3_value_text(value));
    return {text ? text : "", static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

TextOptions optionsOf(sqlite3_value* value) { return static_cast<TextOptions>(sqlite3_value_int(value)); }

/// Runs a function's body; an exception must not pass through SQLite.
template <class Body> void guarded(sqlite3_context* context, Body body) noexcept {
    try {
        body();
    } catch (...) {
        sqlite3_result_error_nomem(context);
    }
}

// What is no text gives NULL, which counts as false.
void compareText(sqlite3_context* context, int, sqlite3_value** arguments) {
    if (!isText(arguments[0])) return;
    guarded(context, [&] {
        auto const type = static_cast<NSPredicateOperatorType>(sqlite3_value_int(arguments[2]));
        FoldedText const folded(textOf(arguments[0]), optionsOf(arguments[3]));
        sqlite3_result_int(context, compareFoldedTexts(type, folded.view(), textOf(arguments[1])));
    });
}

void fold(sqlite3_context* context, int, sqlite3_value** arguments) {
    if (!isText(arguments[0])) return;
    guarded(context, [&] {
        FoldedText const folded(textOf(arguments[0]), optionsOf(arguments[1]));
        sqlite3_result_text64(context, folded.view().data(), folded.view().size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    });
}

/// The words come as a text that makes the same query again.
void findsWords(sqlite3_context* context, int count, sqlite3_value** arguments) {
    guarded(context, [&] {
        auto* query = static_cast<SearchQuery*>(sqlite3_get_auxdata(context, 0)); // taken apart once per query
        std::unique_ptr<SearchQuery> made;
        if (!query) made = std::make_unique<SearchQuery>(textOf(arguments[0]));
        std::vector<std::string_view> texts;
        for (int at = 1; at < count; ++at)
            if (isText(arguments[at])) texts.push_back(textOf(arguments[at]));
        sqlite3_result_int(context, (query ? *query : *made).isFoundIn(texts));
        if (made) sqlite3_set_auxdata(context, 0, made.release(), [](void* kept) { delete static_cast<SearchQuery*>(kept); });
    });
}

void matches(sqlite3_context* context, int, sqlite3_value** arguments) {
    if (!isText(arguments[0])) return;
    guarded(context, [&] {
        using Pattern = Ref<TextPattern const>;
        auto* pattern = static_cast<Pattern*>(sqlite3_get_auxdata(context, 1)); // compiled once per query
        Pattern compiled;
        if (!pattern) {
            compiled = TextPattern::compile(textOf(arguments[1]), optionsOf(arguments[2]));
            sqlite3_set_auxdata(context, 1, new Pattern(compiled), [](void* kept) { delete static_cast<Pattern*>(kept); });
        }
        auto const& used = pattern ? *pattern : compiled;
        sqlite3_result_int(context, used && used->matchesWhole(textOf(arguments[0])));
    });
}

std::string_view piece(void const* text, int size) { return {static_cast<char const*>(text), static_cast<std::size_t>(size)}; }

/// The order that `compare` finds. An exception must not pass through SQLite, and the order of a list half of which could not be
/// compared would be wrong without a word: so the statement is ended.
template <class Compare> int guardedOrder(void* connection, Compare compare) noexcept {
    try {
        auto const order = compare();
        return order < 0 ? -1 : order > 0 ? 1 : 0;
    } catch (...) {
        sqlite3_interrupt(static_cast<sqlite3*>(connection));
        return 0;
    }
}

template <TextComparison comparison> int compareForSorting(void* connection, int aSize, void const* a, int bSize, void const* b) {
    return guardedOrder(connection, [&] { return compareTexts(piece(a, aSize), piece(b, bSize), comparison); });
}

int compareDecimals(void* connection, int aSize, void const* a, int bSize, void const* b) {
    return guardedOrder(connection, [&] {
        return Decimal::fromText(piece(a, aSize)).value_or(Decimal()) <=> Decimal::fromText(piece(b, bSize)).value_or(Decimal());
    });
}

struct Collation {
    TextComparison comparison;
    char const* name;
    int (*order)(void*, int, void const*, int, void const*);
};
constexpr Collation collations[] = {
    {TextComparison::CaseInsensitive, "tessarin_caseless", compareForSorting<TextComparison::CaseInsensitive>},
    {TextComparison::Localized, "tessarin_localized", compareForSorting<TextComparison::Localized>},
    {TextComparison::LocalizedCaseInsensitive, "tessarin_localized_caseless",
     compareForSorting<TextComparison::LocalizedCaseInsensitive>},
    {TextComparison::LocalizedStandard, "tessarin_localized_standard", compareForSorting<TextComparison::LocalizedStandard>},
};

} // namespace

std::string collationFor(TextComparison comparison) {
    for (auto const& [each, name, order] : collations)
        if (each == comparison) return name;
    return {};
}

namespace {

void addCollation(sqlite3* connection, char const* name, int (*order)(void*, int, void const*, int, void const*)) {
    sqlite3_create_collation_v2(connection, name, SQLITE_UTF8, connection, order, nullptr);
}

/// Few connections ever order by one, and each costs as much as a function.
void addWanted(void*, sqlite3* connection, int, char const* wanted) {
    if (std::string_view{wanted} == decimalCollation) return addCollation(connection, decimalCollation, compareDecimals);
    for (auto const& [comparison, name, order] : collations)
        if (std::string_view{wanted} == name) return addCollation(connection, name, order);
}

} // namespace

void registerSQLFunctions(SQLite::Connection& connection) {
    auto const add = [&](char const* name, int count, void (*function)(sqlite3_context*, int, sqlite3_value**)) {
        sqlite3_create_function_v2(connection.handle(), name, count, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, function,
                                   nullptr, nullptr, nullptr);
    };
    add("tessarin_text", 4, compareText);
    add("tessarin_fold", 2, fold);
    add("tessarin_matches", 3, matches);
    add("tessarin_finds", -1, findsWords);
    sqlite3_collation_needed(connection.handle(), nullptr, addWanted);
}

} // namespace Tessarin
