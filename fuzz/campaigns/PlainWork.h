#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace Tessarin::campaigns {

/// Work on files that is not SQLite's: it goes on in steps, and what is in its folder tells how many of them are done.
class PlainWork {
public:
    explicit PlainWork(std::string folder, std::int64_t steps = 4) : folder_(std::move(folder)), steps_(steps) {}
    virtual ~PlainWork() = default;
    virtual void prepare() {}
    /// The step of that number, the first is 1. Throws ErrorException when it says that it failed; then it may be tried again.
    virtual void step(std::int64_t number) = 0;
    /// The step that such a folder shows, 0 is none; absent when the steps leave no number. Throws Broken when it shows one by
    /// halves, or has lost what no step may lose.
    virtual std::optional<std::int64_t> stepIn(std::string const& folder) = 0;
    /// Whether a step that is done outlives a loss of power; otherwise an earlier one may be back then.
    virtual bool isDurable() const { return true; }
    std::int64_t steps() const { return steps_; }

protected:
    std::string folder_;
    std::int64_t steps_;
};

std::unique_ptr<PlainWork> makePreferencesWork(std::string folder);
std::unique_ptr<PlainWork> makeAtomicWork(std::string folder);
std::unique_ptr<PlainWork> makeRescueWork(std::string folder);

struct PlainWorkKind {
    char const* name;
    std::unique_ptr<PlainWork> (*make)(std::string folder);
};
inline constexpr PlainWorkKind plainWorks[] = {
    {"preferences", makePreferencesWork}, {"atomic writes", makeAtomicWork}, {"rescue", makeRescueWork}};

} // namespace Tessarin::campaigns
