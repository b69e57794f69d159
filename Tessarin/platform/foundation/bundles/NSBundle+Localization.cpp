// The texts of a bundle in the user's language.
#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/bundles/NSLocalizedString.h"
#include "Tessarin/platform/foundation/bundles/StringsFilePrivate.h"
#include "Tessarin/platform/foundation/time/UserEnvironmentPrivate.h"
#include "Tessarin/platform/foundation/values/NSData.h"
#include "Tessarin/platform/foundation/values/NSError.h"

#include <unordered_map>

namespace Tessarin {

/// The tables that were asked for in one environment. Immutable: another table makes another one of these.
struct NSBundle::Localization {
    std::uint64_t generation = 0;
    std::unordered_map<std::string, TextTable, TextHash, std::equal_to<>> tables;
};

namespace {

std::atomic<TextTranslator> translator;

/// The first of the user's languages that the bundle has the table in; then the one that it was developed in, if it says so.
TextTable readTable(NSBundle const& bundle, std::string_view name, std::vector<std::string> languages) {
    if (auto development = bundle.infoDictionary()["CFBundleDevelopmentRegion"].as<std::string>())
        languages.push_back(*development);
    for (auto const& language : languages) {
        auto const file = bundle.URLForResource(name, "strings", language + ".lproj");
        if (!file) continue;
        try {
            return pairsOfStringsFile(NSData::contentsOfURL(*file).text());
        } catch (ErrorException const&) {
            continue; // as if it were not there
        }
    }
    return {};
}

} // namespace

/// Keeps what it finds: the benchmark "dates" asks for one word at a time.
Ref<NSBundle::Localization const> NSBundle::localization(std::string_view table) const {
    auto const& environment = UserEnvironment::current();
    auto known = localization_.get();
    bool const isCurrent = known && known->generation == environment.generation;
    if (isCurrent && known->tables.contains(table)) return known;
    auto const fresh = isCurrent ? std::make_shared<Localization>(*known) : std::make_shared<Localization>();
    fresh->generation = environment.generation;
    fresh->tables.try_emplace(std::string{table}, readTable(*this, table, environment.languages));
    localization_.set(fresh);
    return fresh;
}

std::string NSBundle::localizedStringForKey(std::string_view key, std::string_view value, std::string_view table) const {
    auto const known = localization(table.empty() ? "Localizable" : table);
    auto const& texts = known->tables.find(table.empty() ? "Localizable" : table)->second;
    auto const found = texts.find(key);
    return std::string{found != texts.end() ? found->second : value.empty() ? key : value};
}

std::string NSLocalizedString(std::string_view key, std::string_view comment) {
    if (auto const translate = translator.load(std::memory_order_acquire))
        if (auto text = translate(key, comment)) return *std::move(text);
    return NSBundle::mainBundle()->localizedStringForKey(key);
}

void setTextTranslator(TextTranslator function) { translator.store(function, std::memory_order_release); }

} // namespace Tessarin
