#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeQuestionPrivate.h"
#include <cstdint>
#include <mutex>
#include <vector>

namespace Tessarin {

/// What the main queue asks again and again while change sets are on their way: records by the value of an attribute, those
/// that fulfil a condition, the first ones in an order. Whoever hands a set on makes it ready for that, so that the main queue
/// need not wait. What was not asked again for some sets is forgotten. Any thread.
class ChangeQuestions {
public:
    void note(ChangeQuestion const& question);
    /// Those that the next set will be asked.
    std::vector<ChangeQuestion> forNextSet();

private:
    // With the mutex held:
    void noteIndex(NSAttributeDescription const* equal, NSRelationshipDescription const* link);
    void noteAlike(ChangeQuestion const& question);
    void remember(ChangeQuestion question);
    struct Asked {
        ChangeQuestion question;
        std::uint32_t times = 1;
        std::uint32_t setsSince = 0;

        void noteAgain() noexcept {
            setsSince = 0;
            ++times;
        }
    };

    std::mutex mutex_;
    std::vector<Asked> asked_; // guarded by mutex_; few
};

} // namespace Tessarin
