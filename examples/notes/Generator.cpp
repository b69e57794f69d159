#include "Generator.h"

#include <array>
#include <random>
#include <string_view>

namespace notes {
namespace {

constexpr std::array<std::string_view, 48> words = {
    "apple",  "bridge", "candle", "danger", "engine", "forest",  "garden", "harbour", "island",   "jacket", "kitchen", "ladder",
    "market", "needle", "orange", "pencil", "quiet",  "river",   "silver", "table",   "umbrella", "valley", "window",  "yellow",
    "Zürich", "café",   "naïve",  "straße", "über",   "quick",   "slow",   "bright",  "early",    "late",   "north",   "south",
    "plan",   "letter", "budget", "travel", "recipe", "meeting", "doctor", "school",  "music",    "winter", "summer",  "morning"};

class Sentences {
public:
    explicit Sentences(std::uint64_t seed) : random_(seed) {}

    std::string next(std::size_t count) {
        std::string text;
        for (std::size_t at = 0; at < count; ++at)
            text += (text.empty() ? "" : " ") + std::string(words[random_() % words.size()]);
        return text;
    }
    std::size_t below(std::size_t end) { return random_() % end; }

private:
    std::mt19937_64 random_;
};

} // namespace

Text generated(std::uint64_t number) {
    Sentences sentences(number + 1);
    Text made{sentences.next(3) + " " + std::to_string(number), ""};
    for (auto lines = 2 + sentences.below(5); lines > 0; --lines) made.text += sentences.next(8) + ".\n";
    if (number % 5 < 3) made.text += "A note to " + sentences.next(2) + ".\n";
    return made;
}

} // namespace notes
