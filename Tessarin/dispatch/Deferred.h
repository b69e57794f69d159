#pragma once
#include "Tessarin/dispatch/StringLike.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <utility>

namespace Tessarin {

/// A value that is computed when it is first asked for, and then kept, also when it is absent. For one thread, or callers that
/// take turns: two that fulfil it at once may both compute it.
///
///     auto const icon = make<Deferred<Image>>([=] { return loadIcon(path); });
///     if (auto const image = icon->fulfill()) draw(*image);
template <class T> class Deferred : public StringLike {
public:
    using MaterializeBlock = Closure<std::optional<T>()>;

    Deferred(Deferred const&) = delete;
    Deferred& operator=(Deferred const&) = delete;
    virtual ~Deferred() = default;

    /// Without a block the value is absent, unless `actual` is set after it was fulfilled.
    virtual void init() {}
    virtual void init(MaterializeBlock block) { materializeBlock_ = std::move(block); }

    /// Whether `fulfill` has run the block. Set to false, it has the next `fulfill` run it again.
    virtual bool materialized() const { return materialized_; }
    virtual void setMaterialized(bool materialized) { materialized_ = materialized; }
    virtual void modifyMaterialized(FunctionRef<void(bool&)> change) {
        auto changed = materialized();
        change(changed);
        setMaterialized(changed);
    }

    /// The value as it is known; what is set here before the first `fulfill` is overwritten by it.
    virtual KeptValue<T> actual() const { return actual_; }
    virtual void setActual(std::optional<T> actual) { actual_ = std::move(actual); }
    virtual void modifyActual(FunctionRef<void(std::optional<T>&)> change) {
        auto changed = [this]() -> std::optional<T> {
            if constexpr (std::is_copy_constructible_v<T>)
                return actual();
            else
                return std::exchange(actual_, std::nullopt);
        }();
        change(changed);
        setActual(std::move(changed));
    }

    /// Runs the block and sets `actual`. Leaves `materialized` as it is, on purpose: called directly, it computes each time.
    virtual void materialize() { setActual(materializeBlock_ ? materializeBlock_() : std::nullopt); }
    virtual KeptValue<T> fulfill() {
        if (!materialized()) {
            materialize();
            setMaterialized(true);
        }
        return actual();
    }

    /// Fulfils it; the value when it is a text, else "".
    std::string string() override { return textOrEmpty(fulfill()); }

    MaterializeBlock const& materializeBlock() const { return materializeBlock_; }

protected:
    Deferred() = default;

private:
    MaterializeBlock materializeBlock_; // constant after init
    bool materialized_ = false;
    std::optional<T> actual_;
};

} // namespace Tessarin
