#include "Import.h"

#include "ImportIndex.h"
#include "Reshaping.h"
#include "Tessarin/dispatch/Dispatcher.h"
#include <algorithm>
#include <unordered_set>

using namespace Tessarin;

namespace Catalogue {
namespace {

constexpr std::size_t portion = 500; // nodes, with some 6,500 statements

/// The import leaves alone what a dictionary does not mention (and a Boolean or date that is null), so a value that has
/// gone from the data since the last import is cleared here.
void clearWhatLacks(NSManagedObject& object, Dictionary const& dictionary) {
    if (object.isInserted()) return;
    for (auto const* attribute : object.entity().attributes())
        if (attribute->isOptional() && !attribute->isTransient() && dictionary[attribute->name()].isAbsent())
            object.setValueForKey({}, attribute->name());
}

/// Brings a to-many's objects into their order, which costs nothing when they are in it.
void orderReleases(Browser& browser) {
    auto releases = browser.get(Browser::releases);
    auto const ordinal = [](auto const& release) { return release->get(Release::ordinal); };
    if (std::ranges::is_sorted(releases, {}, ordinal)) return;
    std::ranges::stable_sort(releases, {}, ordinal);
    browser.mutableSetValueForKey("releases").setObjects({releases.begin(), releases.end()});
}

} // namespace

void Import::init(Ref<CatalogueStore> store, std::string file, Ref<Progress> progress) {
    store_ = std::move(store);
    file_ = std::move(file);
    progress_ = std::move(progress);
}

void Import::start(Closure<void(std::string)> completion) {
    completion_ = std::move(completion);
    onWorker(
        "Browsers",
        [this](Context& context) {
            data_ = std::make_unique<DataFile>(file_);
            progress_->begin(data_->nodes().size());
            importBrowsers(context);
        },
        [this] { importNextPortion(); });
}

void Import::onWorker(std::string name, Closure<void(Context&)> work, Closure<void()> next) {
    auto const worker = store_->createWorkerContext(name);
    worker->performBlock([import = self<Import>(), worker, work = std::move(work), next = std::move(next)]() mutable {
        try {
            work(*worker);
        } catch (std::exception const& failure) { // a malformed file, above all
            return import->finish(failure.what());
        }
        Ref<NSError> problem;
        worker->saveAndWait({.completion = [&problem](Ref<NSError> error) { problem = std::move(error); }});
        if (problem) return import->finish(problem->localizedDescription());
        next();
    });
}

void Import::importNextPortion() {
    auto const first = next_;
    auto const end = next_ = std::min(first + portion, data_->nodes().size());
    if (first == end)
        return onWorker(
            "Cleaning", [this](Context& context) { deleteWhatTheDataLacks(context); },
            [this] {
                data_ = nullptr; // freed here: left to the end, these 100 MB would hold the main queue for some 40 ms
                waitForDisk();
            });
    onWorker(
        "Features", [this, first, end](Context& context) { importPortion(context, first, end); },
        [this, end] {
            progress_->advanceTo(end);
            importNextPortion();
        });
}

void Import::importBrowsers(Context& context) {
    auto const index = make<ImportIndex>(context);
    for (auto const& [identifier, raw] : data_->browsers()) {
        auto browser = index->browser(identifier);
        if (!browser) browser = context.insertObject<Browser>();
        auto const shaped = shapedBrowser(identifier, raw.dictionary());
        clearWhatLacks(*browser, shaped);
        browser->importDictionary(shaped);
        index->add(browser);
        for (auto const& release : shapedReleases(raw.dictionary())) {
            if (auto const known = index->release(*browser, release["version"].text())) clearWhatLacks(*known, release);
            browser->importRelationship("releases", release);
        }
        orderReleases(*browser);
    }
    // In a second round, since a browser may stand before its upstream.
    for (auto const& [identifier, raw] : data_->browsers())
        if (auto const& upstream = raw.dictionary()["upstream"]; upstream.isText())
            index->browser(identifier)->importRelationship("upstream", {{"identifier", upstream}});
}

void Import::importPortion(Context& context, std::size_t first, std::size_t end) {
    auto const index = make<ImportIndex>(context);
    std::vector<std::string> paths;
    for (auto at = first; at < end; ++at) {
        paths.push_back(data_->nodes()[at].path);
        if (auto const& parent = data_->nodes()[at].parent; !parent.empty()) paths.push_back(parent);
    }
    index->findFeatures(paths);
    for (auto at = first; at < end; ++at) {
        auto const& node = data_->nodes()[at];
        auto const feature = importFeature(context, *index, node);
        index->add(feature, node.path);
        for (auto const& statement : shapedStatements(node)) {
            auto const imported = feature->importRelationship("statements", statement);
            clearWhatLacks(*imported, statement);
        }
        for (auto const& gone : index->takeUnclaimed(*feature)) context.deleteObject(*gone);
    }
}

Ref<Feature> Import::importFeature(Context& context, ImportIndex& index, Node const& node) {
    auto const shaped = shapedFeature(node);
    if (auto const known = index.feature(node.path)) clearWhatLacks(*known, shaped);
    if (!node.parent.empty()) // the hook of the parent finds the child, or the import makes it
        return std::dynamic_pointer_cast<Feature>(index.feature(node.parent)->importRelationship("children", shaped));
    auto root = index.feature(node.path);
    if (!root) root = context.insertObject<Feature>();
    root->importDictionary(shaped);
    return root;
}

void Import::deleteWhatTheDataLacks(Context& context) {
    std::unordered_set<std::string> paths;
    for (auto const& node : data_->nodes()) paths.insert(node.path);
    for (auto const& feature : context.allObjects<Feature>())
        if (!feature->isDeleted() && !paths.contains(feature->get(Feature::path)))
            context.deleteObject(*feature); // with all below it
    for (auto const& browser : context.allObjects<Browser>()) {
        auto const* raw = data_->browsers().find(browser->get(Browser::identifier));
        for (auto const& release : browser->get(Browser::releases))
            if (raw && !raw->dictionary()["releases"].dictionary().contains(release->get(Release::version)))
                context.deleteObject(*release);
        if (!raw) context.deleteObject(*browser);
    }
}

void Import::waitForDisk() {
    // The last worker's save has put the saves above it into this group already. The main thread must not wait for it, as
    // one of those saves is the main context's: it is told.
    dispatch_group_notify(store_->saveDispatchGroup(), dispatch_get_main_queue(), [import = self<Import>()] {
        // An ancestor's failure is silent and keeps its changes, so this shows whether everything has arrived.
        bool isLeft = import->store_->mainThreadContext()->hasChanges();
        import->store_->privateContext()->performBlockAndWait([&] { isLeft |= import->store_->privateContext()->hasChanges(); });
        import->finish(isLeft ? "the catalogue could not be written to the disk" : "");
    });
}

void Import::finish(std::string problem) {
    dispatch_async_main([import = self<Import>(), problem = std::move(problem)] { import->completion_(problem); });
}

} // namespace Catalogue
