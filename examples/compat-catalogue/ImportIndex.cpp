#include "ImportIndex.h"

#include "Tessarin/platform/runtime/AssociatedObjects.h"
#include "Tessarin/platform/runtime/Fatal.h"

using namespace Tessarin;

namespace Catalogue {
namespace {

char const indexKey = 0;

std::string placeOf(std::string_view browser, std::int64_t position) {
    return std::string(browser) + "#" + std::to_string(position);
}

} // namespace

void ImportIndex::init(NSManagedObjectContext& context) {
    context_ = context.self<NSManagedObjectContext>();
    for (auto const& browser : context.allObjects<Browser>()) add(browser);
    setAssociatedObject(context, &indexKey, self<ImportIndex>());
}

ImportIndex& ImportIndex::of(NSManagedObject const& object) {
    auto const context = object.managedObjectContext();
    auto const index = context ? std::dynamic_pointer_cast<ImportIndex>(associatedObject(*context, &indexKey)) : nullptr;
    if (!index) fatal("an import into a context without an index");
    return *index; // the context keeps it
}

Ref<Browser> ImportIndex::browser(std::string_view identifier) const {
    auto const found = browsers_.find(identifier);
    return found == browsers_.end() ? nullptr : found->second;
}

Ref<Release> ImportIndex::release(Browser& browser, std::string_view version) {
    if (browserOfReleases_ != &browser) {
        browserOfReleases_ = &browser;
        releases_.clear();
        for (auto const& release : browser.get(Browser::releases)) releases_.emplace(release->get(Release::version), release);
    }
    auto const found = releases_.find(version);
    return found == releases_.end() ? nullptr : found->second;
}

Ref<Feature> ImportIndex::feature(std::string_view path) const {
    auto const found = features_.find(path);
    return found == features_.end() ? nullptr : found->second;
}

Ref<Statement> ImportIndex::statement(Feature& feature, std::string_view browser, std::int64_t position) {
    lookAt(feature);
    if (statements_.empty()) return nullptr;
    auto const found = statements_.find(placeOf(browser, position));
    if (found == statements_.end()) return nullptr;
    return std::move(statements_.extract(found).mapped());
}

std::vector<Ref<Statement>> ImportIndex::takeUnclaimed(Feature& feature) {
    lookAt(feature);
    std::vector<Ref<Statement>> unclaimed;
    for (auto& [place, statement] : statements_) unclaimed.push_back(std::move(statement));
    statements_.clear();
    featureOfStatements_ = nullptr;
    return unclaimed;
}

void ImportIndex::lookAt(Feature& feature) {
    if (featureOfStatements_ == &feature) return;
    featureOfStatements_ = &feature;
    statements_.clear();
    if (feature.isInserted()) return; // nothing can be there yet
    for (auto const& statement : feature.get(Feature::statements))
        statements_.emplace(
            placeOf(statement->get(Statement::browser)->get(Browser::identifier), statement->get(Statement::position)),
            statement);
}

void ImportIndex::add(Ref<Browser> const& browser) { browsers_.emplace(browser->get(Browser::identifier), browser); }

void ImportIndex::add(Ref<Feature> const& feature, std::string_view path) { features_.emplace(path, feature); }

void ImportIndex::findFeatures(std::vector<std::string> const& paths) {
    auto const context = context_.lock();
    for (auto const& feature : context->allObjects<Feature>({.predicate = NSPredicate::predicateWithFormat("path IN %@", paths)}))
        add(feature, feature->get(Feature::path));
}

} // namespace Catalogue
