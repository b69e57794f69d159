#include "Verification.h"

using namespace Tessarin;

namespace Catalogue {
namespace {

/// How many objects of an entity fulfil a condition, and how many the data says.
struct Count {
    char const* entity;
    Ref<NSPredicate> predicate; // null: all of them
    std::int64_t expected;
};

template <class... Arguments> Ref<NSPredicate> where(char const* format, Arguments const&... arguments) {
    return NSPredicate::predicateWithFormat(format, arguments...);
}

std::vector<Count> countsOf(Census const& census) {
    std::vector<Count> counts{
        {"Browser", nullptr, static_cast<std::int64_t>(census.browsers.size())},
        {"Release", nullptr, census.releases},
        {"Feature", nullptr, census.nodes},
        {"Feature", where("isFeature == YES"), census.features},
        {"Feature", where("parent == nil"), census.roots},
        {"Status", nullptr, census.statuses},
        {"Status", where("deprecated == YES"), census.deprecated},
        {"Statement", nullptr, census.statements},
        {"Statement", where("addedTruth == YES"), census.addedTrue},
        {"Statement", where("addedTruth == NO"), census.addedFalse},
        {"Statement", where("addedTruth == nil AND addedVersion == nil"), census.addedNull},
        {"Statement", where("addedAtLatest == YES AND addedVersion BEGINSWITH %@", "≤"), census.addedAtLatest},
        {"Statement", where("addedVersion == %@", "preview"), census.addedPreview},
        {"Statement", where("removedVersion != nil OR removedTruth == YES"), census.removed},
        {"Statement", where("removedTruth == NO"), census.removedFalse},
        {"Statement", where("partial_implementation == YES"), census.partial},
        {"Statement", where("flags != nil"), census.flagged},
        {"Statement", where("feature == nil OR browser == nil"), 0},
    };
    for (auto const& [identifier, browser] : census.browsers) {
        counts.push_back({"Release", where("browser.identifier == %@", identifier), browser.releases});
        counts.push_back(
            {"Release", where("browser.identifier == %@ AND releaseDate != nil", identifier), browser.datedReleases});
        counts.push_back({"Statement", where("browser.identifier == %@", identifier), browser.statements});
    }
    return counts;
}

/// Releases must stand in the order of their versions, which the relationship itself keeps.
void compareOrder(Browser& browser, std::vector<std::string>& result) {
    std::int64_t last = -1;
    for (auto const& release : browser.get(Browser::releases)) {
        auto const ordinal = release->get(Release::ordinal);
        if (ordinal < last)
            result.push_back(browser.get(Browser::identifier) + ": release " + release->get(Release::version) +
                             " stands too late");
        last = ordinal;
    }
}

} // namespace

std::vector<std::string> differences(CatalogueStore& store, Census const& census) {
    auto& context = *store.mainThreadContext();
    std::vector<std::string> result;
    for (auto const& count : countsOf(census))
        if (auto const found = context.count(count.entity, count.predicate); found != count.expected)
            result.push_back(std::string(count.entity) + (count.predicate ? " where " + count.predicate->predicateFormat() : "") +
                             ": " + std::to_string(found) + " in the store, " + std::to_string(count.expected) + " in the data");
    for (auto const& browser : context.allObjects<Browser>()) compareOrder(*browser, result);
    return result;
}

} // namespace Catalogue
