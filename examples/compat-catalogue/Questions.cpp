#include "Questions.h"

#include "Reshaping.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <algorithm>
#include <cstdio>
#include <set>

using namespace Tessarin;

namespace Catalogue {
namespace {

constexpr std::size_t shown = 8;

template <class... Arguments> Ref<NSPredicate> where(char const* format, Arguments const&... arguments) {
    return NSPredicate::predicateWithFormat(format, arguments...);
}

std::set<Ref<Feature>> featuresOf(std::vector<Ref<Statement>> const& statements) {
    std::set<Ref<Feature>> features;
    for (auto const& statement : statements) features.insert(statement->get(Statement::feature));
    return features;
}

/// "api > AbortController > abort", along the tree.
std::string trail(Feature& feature) {
    auto const parent = feature.get(Feature::parent);
    return (parent ? trail(*parent) + " > " : "") + feature.get(Feature::name);
}

std::string supportText(Statement& statement) {
    auto text = statement.get(Statement::addedVersion);
    if (auto const truth = statement.get(Statement::addedTruth))
        text = *truth ? "yes, version unknown" : "no";
    else if (text.empty())
        text = "unknown";
    if (auto const removed = statement.get(Statement::removedVersion); !removed.empty()) text += " until " + removed;
    if (statement.get(Statement::isPartial)) text += ", partly";
    if (auto const prefix = statement.get(Statement::prefix); !prefix.empty()) text += ", with prefix " + prefix;
    if (auto const flags = statement.get(Statement::flags); !flags.empty()) text += ", behind " + flags;
    return text;
}

} // namespace

void printInFirefoxButNotInSafari(CatalogueStore& store) {
    auto& context = *store.mainThreadContext();
    // "At latest in" says nothing about since when, so it does not count as an answer.
    auto const inFirefox = featuresOf(context.allObjects<Statement>(
        {.predicate = where("browser.identifier == %@ AND isPlain == YES AND addedAtLatest == NO AND addedOrdinal >= %@",
                            "firefox", ordinalOf("100"))}));
    auto const inSafari =
        featuresOf(context.allObjects<Statement>({.predicate = where("browser.identifier == %@ AND isPlain == YES", "safari")}));
    std::vector<std::string> paths;
    for (auto const& feature : inFirefox)
        if (!inSafari.contains(feature)) paths.push_back(feature->get(Feature::path));
    std::ranges::sort(paths);
    std::string text = "In Firefox since 100 or later, but not in Safari: " + std::to_string(paths.size()) + " features";
    for (std::size_t i = 0; i < std::min(shown, paths.size()); ++i) text += "\n  " + paths[i];
    if (paths.size() > shown) text += "\n  …";
    print(text);
}

void printMostRecentBrowsers(CatalogueStore& store) {
    auto& context = *store.mainThreadContext();
    // Planned releases have dates, too, so it is the status that says what is out.
    auto const request = context.fetchRequest("Release");
    request->setPredicate(where("status == %@ AND releaseDate != nil", "current"));
    request->setSortDescriptors({NSSortDescriptor::sortDescriptorWithKey("releaseDate", {.ascending = false}),
                                 NSSortDescriptor::sortDescriptorWithKey("browser.name")});
    request->setFetchLimit(shown);
    Ref<NSError> error;
    std::string text = "Most recently released browsers";
    for (auto const& object : context.executeFetchRequest(*request, error)) {
        auto const release = std::dynamic_pointer_cast<Release>(object);
        auto const day = release->get(Release::releaseDate)->description().substr(0, 10);
        text += "\n  " + day + "  " + release->get(Release::browser)->get(Browser::name) + " " + release->get(Release::version);
    }
    if (error) throw ErrorException(error);
    print(text);
}

void printSupportTable(CatalogueStore& store) {
    auto& context = *store.mainThreadContext();
    auto feature = context.anyObject<Feature>({.predicate = where("path == %@", "css.properties.backdrop-filter")});
    if (!feature) // another data set: any feature will do
        feature = context.anyObject<Feature>(
            {.predicate = where("isFeature == YES"), .sortBy = {NSSortDescriptor::sortDescriptorWithKey("path")}});
    if (!feature) return print("Support table: there is no feature");
    auto statements = feature->get(Feature::statements);
    std::ranges::sort(statements, {}, [](auto const& statement) {
        return std::pair{statement->get(Statement::browser)->get(Browser::name), statement->get(Statement::position)};
    });
    auto text = "Support of " + trail(*feature);
    for (auto const& statement : statements) {
        auto name = statement->get(Statement::browser)->get(Browser::name);
        name.resize(std::max<std::size_t>(name.size(), 20), ' ');
        text += "\n  " + name + "  " + supportText(*statement);
    }
    print(text);
}

} // namespace Catalogue
