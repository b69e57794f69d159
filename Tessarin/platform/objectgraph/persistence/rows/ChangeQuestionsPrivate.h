#pragma once
#include "Tessarin/platform/runtime/Ref.h"
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

namespace Tessarin {

class NSAttributeDescription;
class NSEntityDescription;
class NSSortDescriptor;

/// What the main queue asks again and again while change sets are on their way: records by the value of an attribute, the first
/// ones in an order. Whoever hands a set on makes it ready for that, so that the main queue need not wait. What was not asked
/// again for some sets is forgotten. Any thread.
class ChangeQuestions {
public:
    struct Question {
        NSAttributeDescription const* equal = nullptr; // or
        NSEntityDescription const* tree = nullptr;
        std::vector<Ref<NSSortDescriptor>> order;
    };
    void note(NSAttributeDescription const& equal);
    void note(NSEntityDescription const& tree, std::span<Ref<NSSortDescriptor> const> order);
    /// Those that the next set will be asked.
    std::vector<Question> forNextSet();

private:
    struct Asked {
        Question question;
        std::uint32_t setsSince = 0;
    };
    void note(Question question);

    std::mutex mutex_;
    std::vector<Asked> asked_; // guarded by mutex_; few
};

} // namespace Tessarin
