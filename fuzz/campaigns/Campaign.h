#pragma once
#include <cstdint>
#include <fmt/format.h>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tessarin::campaigns {

/// What a trial throws when the library did not keep a promise.
struct Broken : std::runtime_error {
    using std::runtime_error::runtime_error;
};
template <class... Arguments> void require(bool holds, fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    if (!holds) throw Broken(fmt::format(format, std::forward<Arguments>(arguments)...));
}

/// One trial: everything random in it follows from its number, so that it can be repeated alone.
class Trial {
public:
    Trial(std::string_view campaign, std::uint64_t number);
    ~Trial();
    Trial(Trial const&) = delete;
    Trial& operator=(Trial const&) = delete;

    std::uint64_t number() const noexcept { return number_; }
    /// Less than `bound`.
    std::uint64_t random(std::uint64_t bound) { return std::uniform_int_distribution<std::uint64_t>(0, bound - 1)(engine_); }
    bool chance(double probability) { return std::bernoulli_distribution(probability)(engine_); }
    /// An empty folder, removed after the trial.
    std::string const& folder() const noexcept { return folder_; }

private:
    std::uint64_t number_;
    std::mt19937_64 engine_;
    std::string folder_;
};

/// Counts of what happened, printed at the end: a campaign that never met its fault proves nothing.
class Tally {
public:
    void add(std::string_view what, std::uint64_t count = 1);
    std::uint64_t of(std::string_view what) const;
    std::string text() const;

private:
    std::vector<std::pair<std::string, std::uint64_t>> counts_;
};

struct Campaign {
    char const* name;
    char const* what;
    void (*trial)(Trial&, Tally&); // throws Broken
    /// Throws Broken when the trials together show nothing; null: nothing to check. Asked only of `enough` trials or more.
    void (*judge)(Tally const&) = nullptr;
    std::uint64_t enough = 0;
};

/// A process that a trial starts: this program with `--child ROLE ARGUMENTS…`.
struct Role {
    char const* name;
    int (*run)(std::span<char*> arguments);
};

std::span<Campaign const> allCampaigns();
std::span<Role const> allRoles();

} // namespace Tessarin::campaigns
