#pragma once
#include "fuzz/campaigns/FaultyFiles.h"
#include <chrono>
#include <memory>
#include <span>
#include <string>

namespace Tessarin::campaigns {

/// What a fault is met in. `prepare` makes the folder; `run` is what operations are counted and fail in, and throws an
/// ErrorException when it says that it failed; `check` is asked when all is well again.
class Scene {
public:
    explicit Scene(std::string folder);
    virtual ~Scene() = default;
    virtual void prepare() = 0;
    virtual void run() = 0;
    /// How long a sticky fault lasts.
    virtual std::chrono::milliseconds patience(FaultyFiles::Kind) const { return std::chrono::milliseconds(30); }
    /// After a failure, before anything is tried again.
    virtual void afterFailure() {}
    virtual void check() = 0;

protected:
    std::string folder_;
};

struct SceneKind {
    char const* name;
    std::unique_ptr<Scene> (*make)(std::string folder);
    FaultyFiles::Layer layer;
};
template <class T> std::unique_ptr<Scene> made(std::string folder) { return std::make_unique<T>(std::move(folder)); }

std::span<SceneKind const> storeScenes();
std::span<SceneKind const> plainScenes();

} // namespace Tessarin::campaigns
