#include "Tessarin/platform/objectgraph/context/UniqueValuesLookPrivate.h"

#include "Tessarin/platform/objectgraph/context/ChangePackerPrivate.h"
#include "Tessarin/platform/objectgraph/context/UniqueValuesSearchPrivate.h"

#include <tuple>
#include <utility>

namespace Tessarin {
namespace {

/// Has a context note which objects are touched.
class Touching {
public:
    explicit Touching(ContextState& context) : context_(context) { context.touched = &objects; }
    ~Touching() { context_.touched = nullptr; }
    Touching(Touching const&) = delete;
    Touching& operator=(Touching const&) = delete;

    std::vector<Ref<NSManagedObject>> objects;

private:
    ContextState& context_;
};

} // namespace

Ref<NSError> UniqueValuesLook::settle(bool& hasUnited) {
    auto const& constraints = context_.coordinator->space()->constraints();
    if (constraints.count() == 0) return nullptr;
    for (std::vector<std::tuple<RecordKey, UniqueConstraint const*, RecordKey>> before;;) {
        auto const own = ChangePacker(context_).pack(constraints);
        if (!own) return nullptr;
        Search search(context_, *own);
        search.lookAtAll();
        if (search.isEmpty()) return nullptr;
        hasUnited = true;
        std::vector<std::tuple<RecordKey, UniqueConstraint const*, RecordKey>> now;
        for (auto const& clash : search.found()) now.emplace_back(clash.change->key, clash.constraint, clash.holder->key());
        Touching const touching(context_);
        auto error = settleClashes(search, now != std::exchange(before, now), touching.objects);
        finish();
        if (error) return error;
    }
}

/// Round after round, each at the price of what it decides: who gives way may free the next.
Ref<NSError> UniqueValuesLook::settleClashes(Search& search, bool goesOn, Objects const& touched) {
    touched_ = &touched;
    referrers_.reset();
    for (referring_ = 0; !search.isEmpty();) {
        auto const from = touched.size();
        // A policy that changes nothing would be asked for ever.
        if (auto error = decide(search, goesOn ? *owner_.mergePolicy() : *NSErrorMergePolicy())) return error;
        auto const objects = std::vector(touched.begin() + static_cast<std::ptrdiff_t>(from), touched.end());
        goesOn = search.lookAgain(objects);
    }
    return nullptr;
}

bool UniqueValuesLook::isFree(ChangeSet const& own) const {
    if (context_.coordinator->space()->constraints().count() == 0) return true;
    Search search(context_, own);
    search.lookAtAll();
    return search.isEmpty();
}

} // namespace Tessarin
