#include "Import.h"

#include "Generator.h"

using namespace Tessarin;

namespace notes {

Ref<Import> Import::start(ManagedObjectStore& store, std::size_t count, Told told) {
    auto import = std::make_shared<Import>();
    store.importBlock([import, count, told = std::move(told)](Ref<NSManagedObjectContext> const& context) {
        bool const hasCome = import->run(*context, count, told);
        Dispatcher::main()->async([told, hasCome] { told.ended(hasCome); });
    });
    return import;
}

/// The worker is saved when this returns.
bool Import::run(NSManagedObjectContext& context, std::size_t count, Told const& told) {
    static constexpr std::size_t step = 500;
    context.setUndoable("Import");
    auto const notebook = notebookNamed(context, "Imported");
    for (std::size_t at = 0; at < count; ++at) {
        auto const [title, text] = generated(at);
        addNote(context, title, text, notebook)->set(Note::edited, NSDate::now().dateByAddingTimeInterval(-60.0 * double(at)));
        if (at % step != 0) continue;
        Dispatcher::main()->async([told, at] { told.progress(at); });
        if (!isCancelled_.get()) continue;
        context.rollback();
        return false;
    }
    return true;
}

} // namespace notes
