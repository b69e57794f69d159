#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/objectgraph/persistence/migration/MigrationPlan.h"
#include <utility>

namespace Tessarin {

/// What is known about a file that could not be opened as a store, and will not be: kept by the error. Any thread.
///
///     if (auto const refusal = StoreRefusal::of(*error)) print(refusal->copy() ? refusal->copy()->path() : "nothing was there");
class TESSARIN_API StoreRefusal : public NSObject {
public:
    /// Null for an error that refuses no file.
    static Ref<StoreRefusal> of(NSError const& error);

    /// The folder in which the file and its log are kept; absent when there is nothing in them, or no file.
    std::optional<NSURL> const& copy() const noexcept { return copy_; }
    /// What a migration would have done as far as the models alone tell; absent when they rule it out, or were not the reason.
    std::optional<MigrationPlan> const& plan() const noexcept { return plan_; }
    std::string description() const override;

    /// A file or folder, whatever its name is now: device and number.
    using Identity = std::pair<std::uint64_t, std::uint64_t>;
    /// Absent when nothing is there, or cannot be looked at. A link counts as what it leads to.
    static std::optional<Identity> identityAt(std::string const& path);
    /// What was judged stood here,
    std::string const& place() const noexcept { return place_; }
    /// and was this.
    std::optional<Identity> const& identity() const noexcept { return identity_; }
    /// Whether it is a store without any records.
    bool isOfEmptyStore() const noexcept { return isOfEmptyStore_; }

    using NSObject::init;
    virtual void init(std::string place, std::optional<Identity> identity, bool isOfEmptyStore, std::optional<MigrationPlan> plan,
                      std::optional<NSURL> copy);

protected:
    StoreRefusal() = default;

private:
    std::string place_; // all constant after init
    std::optional<Identity> identity_;
    bool isOfEmptyStore_ = false;
    std::optional<MigrationPlan> plan_;
    std::optional<NSURL> copy_;
};

} // namespace Tessarin
