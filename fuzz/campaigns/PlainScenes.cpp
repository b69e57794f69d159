// Scenes of work on plain files: its second step is what fails.
#include "fuzz/campaigns/PlainFiles.h"
#include "fuzz/campaigns/PlainWork.h"
#include "fuzz/campaigns/Scenes.h"

#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {
namespace {

template <auto makeWork> class PlainScene : public Scene {
public:
    explicit PlainScene(std::string folder) : Scene(std::move(folder)), work_(makeWork(folder_)) {}
    ~PlainScene() override { PlainFiles::end(); }

    void prepare() override {
        work_->prepare();
        work_->step(1);
        PlainFiles::begin(folder_);
    }
    void run() override { work_->step(2); }
    void afterFailure() override {
        requireStep(1, "after a failure"); // before a second try hides it
        run();
    }
    void check() override { requireStep(2, "in the end"); }

private:
    void requireStep(std::int64_t expected, char const* when) {
        auto const found = work_->stepIn(folder_);
        require(found.value_or(expected) == expected, "{}: step {} instead of {}", when, found.value_or(0), expected);
    }
    std::unique_ptr<PlainWork> work_;
};

} // namespace

std::span<SceneKind const> plainScenes() {
    using enum FaultyFiles::Layer;
    static constexpr SceneKind all[] = {{"preferences", made<PlainScene<makePreferencesWork>>, System},
                                        {"atomic writes", made<PlainScene<makeAtomicWork>>, System},
                                        {"rescue", made<PlainScene<makeRescueWork>>, System}};
    return all;
}

} // namespace Tessarin::campaigns
