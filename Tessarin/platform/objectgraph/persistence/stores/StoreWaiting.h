#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreOpening.h"
#include "Tessarin/platform/runtime/Closure.h"
#include <optional>
#include <utility>

namespace Tessarin {

/// Option key of a store: a StoreWaiting.
inline constexpr char const* NSStoreWaitingOption = "NSStoreWaitingOption";

/// How the opening of a store waits for what may pass: with growing pauses of up to a second, for ever unless a limit is set.
/// For one opening at a time, used by the thread that opens.
///
///     auto const show = [](auto const& reason, double) { showInStatusLine(reason->localizedDescription()); };
///     auto const waiting = make<StoreWaiting>(show, 30.0);
///     coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, file, {{NSStoreWaitingOption, waiting}}, error);
class TESSARIN_API StoreWaiting : public NSObject {
public:
    /// The reason, and the seconds since the first pause.
    using Told = Closure<void(Ref<NSError> const& reason, double seconds)>;

    using NSObject::init;
    /// `told` (may be empty) is called by the waiting thread after 1 s, then after 2, 4, 8 and so on; what it throws ends the
    /// opening. After `timeLimit` seconds (absent: never) the opening ends with the reason as its error; 0 never waits.
    virtual void init(Told told, std::optional<double> timeLimit);
    /// Pauses for a moment, the next time for twice as long; false, without a pause, when the limit is reached, and as soon as
    /// the opening is cancelled.
    virtual bool pause(Ref<NSError> const& reason);
    bool isOver() const noexcept { return isOver_; }
    /// Whose cancellation ends it; may be null.
    void setOpening(Ref<StoreOpening> opening) noexcept { opening_ = std::move(opening); }
    /// The store is open: a later opening begins anew.
    void end() noexcept;

protected:
    StoreWaiting() = default;

private:
    static constexpr double firstPause = 0.005, longestPause = 1, firstTold = 1, cancelledWithin = 0.05; // seconds
    bool isCancelled() const noexcept { return opening_ && opening_->isCancelled(); }
    void sleep(double seconds) const;

    Ref<StoreOpening> opening_;
    Told told_;
    std::optional<double> timeLimit_;
    std::optional<double> began_;
    double nextPause_ = firstPause, nextTold_ = firstTold;
    bool isOver_ = false;
};

} // namespace Tessarin
