#pragma once
#include <cstdint>
#include <string>

namespace notes {

struct Text {
    std::string title, text;
};

/// The note of that number, always the same: some hundred characters of made-up sentences. Three in five have the word "note".
Text generated(std::uint64_t number);

} // namespace notes
