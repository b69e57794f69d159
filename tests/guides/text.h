#include "Tessarin/Tessarin.h"
#include <algorithm>

using namespace Tessarin;
inline std::string const name = "Jane", line = "a b", article = "…";
inline std::vector<std::string> names;
inline std::size_t const byteOffset = 2;
inline NSURL const author = NSURL::fileURLWithPath("/jane");
inline NSColor const red{1, 0, 0, 1};
inline void count(std::string_view) {}
inline void show(std::string_view, TextAttributes const&) {}
inline struct {
    void setText(std::string const&) {}
} label;
