#pragma once
#include "CatalogueStore.h"
#include "DataFile.h"
#include "Progress.h"

namespace Catalogue {

class ImportIndex;
class Feature;

/// Brings a data file into the store: browsers first, then the tree of features in portions, each on a worker context of
/// its own, so that a portion is freed while the next one is read and the last one travels to the disk. The main queue
/// only ever passes changes on. What the store has already is updated, what the data has no more is deleted.
///
///     make<Import>(store, file, progress)->start([](std::string problem) { … });
class Import : public Tessarin::NSObject {
public:
    /// Returns at once. `completion` is called on the main queue when everything is on disk, or with what went wrong.
    void start(Tessarin::Closure<void(std::string problem)> completion);

protected:
    Import() = default;
    using NSObject::init;
    virtual void init(Ref<CatalogueStore> store, std::string file, Ref<Progress> progress);

private:
    template <class T> friend struct Tessarin::detail::Made;
    using Context = Tessarin::NSManagedObjectContext;

    /// Runs `work` on a new worker context and saves it; then `next`.
    void onWorker(std::string name, Tessarin::Closure<void(Context&)> work, Tessarin::Closure<void()> next);
    void importNextPortion();
    void importBrowsers(Context& context);
    void importPortion(Context& context, std::size_t first, std::size_t end);
    Ref<Feature> importFeature(Context& context, ImportIndex& index, Node const& node);
    void deleteWhatTheDataLacks(Context& context);
    void waitForDisk();
    void finish(std::string problem);

    Ref<CatalogueStore> store_; // constant after init
    std::string file_;
    Ref<Progress> progress_;
    std::unique_ptr<DataFile const> data_; // constant once the first worker has begun
    std::size_t next_ = 0;                 // the rest is used by one worker after the other
    Tessarin::Closure<void(std::string)> completion_;
};

} // namespace Catalogue
