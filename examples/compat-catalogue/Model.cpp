#include "Model.h"

#include "ImportIndex.h"
#include <charconv>
#include <chrono>

using namespace Tessarin;

namespace Catalogue {

void registerModelClasses() {
    registerClass<Browser, NSManagedObject>();
    registerClass<Release, NSManagedObject>();
    registerClass<Feature, NSManagedObject>();
    registerClass<Status, NSManagedObject>();
    registerClass<Statement, NSManagedObject>();
}

Ref<NSManagedObject> Browser::findExistingRelationship(std::string const& entityName, Dictionary const& forDictionary) {
    auto& index = ImportIndex::of(*this);
    if (entityName == "Browser") return index.browser(forDictionary["identifier"].text()); // an upstream
    return index.release(*this, forDictionary["version"].text());
}

std::optional<std::string> Browser::dictionaryKeyToAttributeName(std::string const& key) {
    // Each of 182,364 statements refers to its browser by {"identifier": …}, and the import fills what it has found. What
    // identifies a browser never changes, so it is left alone once it is there.
    if (key == "identifier" && !get(identifier).empty()) return {};
    return key;
}

std::optional<std::string> Release::dictionaryKeyToAttributeName(std::string const& key) {
    // An entry counts as an attribute by its raw key, and is stored under the name given here: that is why the model has
    // a transient release_date beside releaseDate.
    return key == "release_date" ? "releaseDate" : key;
}

std::optional<NSDate> Release::dictionaryStringToDate(std::string const& text) {
    // "2008-12-11": neither of the forms that the import knows. A day without an hour, taken as midnight UTC.
    int numbers[3]{};
    auto const* at = text.data();
    auto const* const end = at + text.size();
    for (auto& number : numbers) {
        auto const [next, error] = std::from_chars(at, end, number);
        if (error != std::errc{} || (&number != &numbers[2] && (next == end || *next != '-'))) return {};
        at = next + (next != end);
    }
    using namespace std::chrono;
    year_month_day const day{year{numbers[0]}, month{static_cast<unsigned>(numbers[1])},
                             std::chrono::day{static_cast<unsigned>(numbers[2])}};
    if (!day.ok()) return {};
    return NSDate::dateWithTimeIntervalSince1970(static_cast<double>(sys_days{day}.time_since_epoch().count()) * 86400);
}

Ref<NSManagedObject> Feature::findExistingRelationship(std::string const& entityName, Dictionary const& forDictionary) {
    if (entityName == "Status") return get(status);
    auto& index = ImportIndex::of(*this);
    if (entityName == "Feature") return index.feature(forDictionary["path"].text()); // a child
    return index.statement(*this, forDictionary["browser"].dictionary()["identifier"].text(),
                           forDictionary["position"].integer());
}

Ref<NSManagedObject> Statement::findExistingRelationship(std::string const&, Dictionary const& forDictionary) {
    return ImportIndex::of(*this).browser(forDictionary["identifier"].text());
}

} // namespace Catalogue
