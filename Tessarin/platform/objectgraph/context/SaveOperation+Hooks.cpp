// What the classes of objects have to say of a save before it begins.
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/context/SaveOperationPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

namespace Tessarin {
namespace {

Ref<NSError> combined(std::vector<Ref<NSError>> errors) {
    if (errors.empty()) return nullptr;
    if (errors.size() == 1) return errors.front();
    std::string text = "Several objects cannot be saved:";
    List details;
    for (auto const& error : errors) {
        text += " " + error->localizedDescription();
        details.push_back(Value(error));
    }
    return storeError(StoreErrorCode::SeveralErrors, text, {{"NSDetailedErrors", details}});
}

Ref<NSError> endless(std::string const& what) {
    return storeError(StoreErrorCode::SaveWithoutEnd, "The save does not come to an end: " + what);
}

/// Saves that hooks of other saves have begun on this thread.
class Level {
public:
    Level() noexcept { ++count_; }
    ~Level() { --count_; }
    Level(Level const&) = delete;
    Level& operator=(Level const&) = delete;
    static bool isDeepest() noexcept { return count_ > 64; }

private:
    static thread_local std::size_t count_;
};
thread_local std::size_t Level::count_ = 0;

} // namespace

/// Calls `ask` for each changed object, also for those that are changed or inserted by what it calls, until it says that it has
/// heard enough.
template <class Ask> Ref<NSError> SaveOperation::askObjects(Ask ask) {
    static constexpr std::size_t mostGenerations = 1000; // of objects that hooks insert; those that they change come to an end
    Level const level;
    if (level.isDeepest()) return endless("a hook of an object saves again and again");
    auto& changed = context_.changed;
    std::size_t at = 0;
    for (std::size_t end = changed.size(), generations = 0; at < changed.size(); end = changed.size()) {
        bool const isFirst = at == 0;
        bool hasNew = false;
        for (; at < end && at < changed.size(); ++at) {
            auto const object = changed[at];
            hasNew = hasNew || object->isInserted();
            if (!ask(object)) return nullptr;
        }
        if (hasNew && !isFirst && ++generations == mostGenerations)
            return endless("a hook of an object goes on inserting others");
    }
    return nullptr;
}

Ref<NSError> SaveOperation::announce() {
    return askObjects([](Ref<NSManagedObject> const& object) {
        object->willSave();
        return true;
    });
}

Ref<NSError> SaveOperation::validate() {
    static constexpr std::size_t mostErrors = 100; // a failed import would otherwise report every record
    std::vector<Ref<NSError>> errors;
    auto const asked = askObjects([&](Ref<NSManagedObject> const& object) {
        auto error = object->isDeleted() ? denialOf(*object) : object->validateForSave();
        if (!error && !object->isDeleted()) error = sizeProblem(*object);
        if (error) errors.push_back(std::move(error));
        return errors.size() < mostErrors;
    });
    return asked ? asked : combined(std::move(errors));
}

} // namespace Tessarin
