#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/runtime/Cell.h"
#include "Tessarin/platform/runtime/Closure.h"
#include <atomic>
#include <string>

namespace Tessarin {

/// Option key of a store: a StoreOpening.
inline constexpr char const* NSStoreOpeningOption = "NSStoreOpeningOption";

/// How far a long opening has come.
struct StoreProgress {
    enum class Stage {
        None,       // nothing that takes long, so far
        Migrating,  // bringing records to the new model
        MakingIndex // of records that are there already
    };
    Stage stage = Stage::None;
    std::string name = {}; // of the entity whose records these are
    double fraction = 0;   // of all stages, 0 to 1; never falls. Within a step it is an estimate
};

/// An opening under way: tells how far it has come, and can be stopped. Any thread. Letting go of it stops nothing.
///
///     auto const opening = make<StoreOpening>([](StoreProgress const& now) { show(now.fraction); });
///     coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, file, {{NSStoreOpeningOption, opening}}, error);
class TESSARIN_API StoreOpening : public NSObject {
public:
    /// Called by the thread that opens, at most once for each hundredth and each step. It may cancel.
    using Told = Closure<void(StoreProgress const& progress)>;

    using NSObject::init;
    void init() override { init(nullptr); }
    virtual void init(Told told);

    /// Ends waiting, a migration and the making of indexes, soon; the file is then as it was, and the error's code is
    /// StoreErrorCode::StoreOpeningCancelled. Nothing where the opening has ended already, or what it did is saved in the file.
    void cancel() noexcept { isCancelled_.store(true, std::memory_order_relaxed); }
    /// Whether somebody asked for it; the opening may have ended before.
    bool isCancelled() const noexcept { return isCancelled_.load(std::memory_order_relaxed); }
    StoreProgress progress() const { return progress_.get(); }

    // For the store:
    void tell(StoreProgress progress);
    /// It has ended, and tells nothing any more.
    void end() noexcept { told_ = nullptr; }
    Ref<NSError> cancellation() const;

protected:
    StoreOpening() = default;

private:
    std::atomic<bool> isCancelled_{false};
    Cell<StoreProgress> progress_;
    Told told_; // the opening thread's
};

} // namespace Tessarin
