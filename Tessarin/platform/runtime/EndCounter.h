#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <atomic>
#include <cstdint>

namespace Tessarin {

/// Counts the ends of objects that it follows: who remembers very many weakly looks at them when the count has changed, and at
/// none of them otherwise. Any thread.
///
///     ends.follow(*target, &watcher);
///     if (ends.count() != seen) forgetTheDead();
class TESSARIN_API EndCounter {
public:
    EndCounter();

    /// `key` is the follower's own address; the object is followed once for each. The counter may go before the object.
    void follow(NSObject const& object, void const* key);
    /// Before the follower goes, while the object lives; its end is not counted any more.
    void unfollow(NSObject const& object, void const* key);
    std::uint64_t count() const;

private:
    Ref<NSObject> const mark_; // attached to each of them, so that it is shared by those that live, and by this
    std::atomic<std::int64_t> followed_{0};
};

} // namespace Tessarin
