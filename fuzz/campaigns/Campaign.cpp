#include "fuzz/campaigns/Campaign.h"

#include "fuzz/campaigns/Trace.h"

#include <algorithm>
#include <filesystem>
#include <functional>

namespace Tessarin::campaigns {
namespace {

bool isTraced = false;

} // namespace

void traceFromNowOn() { isTraced = true; }
void trace(std::string_view line) {
    if (isTraced) fmt::print("{}\n", line);
}

Trial::Trial(std::string_view campaign, std::uint64_t number) : number_(number) {
    // Neighbouring numbers must not give neighbouring sequences.
    std::uint64_t name = 1469598103934665603ULL;
    for (char const letter : campaign) name = (name ^ static_cast<unsigned char>(letter)) * 1099511628211ULL;
    std::seed_seq seed{name, name >> 32, number, number >> 32};
    engine_.seed(seed);
    folder_ = (std::filesystem::temp_directory_path() / "tessarin-campaign-XXXXXX").string();
    if (!::mkdtemp(folder_.data())) throw std::runtime_error("no temporary folder");
}

Trial::~Trial() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void Tally::add(std::string_view what, std::uint64_t count) {
    auto const found = std::ranges::find(counts_, what, [](auto const& each) { return std::string_view{each.first}; });
    if (found != counts_.end())
        found->second += count;
    else
        counts_.emplace_back(what, count);
}

std::uint64_t Tally::of(std::string_view what) const {
    auto const found = std::ranges::find(counts_, what, [](auto const& each) { return std::string_view{each.first}; });
    return found == counts_.end() ? 0 : found->second;
}

std::string Tally::text() const {
    std::string text;
    for (auto const& [what, count] : counts_) text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count, what);
    return text;
}

} // namespace Tessarin::campaigns
