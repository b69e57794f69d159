#include "Tessarin/platform/runtime/OneLinePrivate.h"

#include "Tessarin/platform/runtime/Fatal.h"

#include <cstdio>

namespace Tessarin {
namespace {

struct Control {
    unsigned code;
    std::size_t length; // in bytes; 0: none stands there
};

/// The control character or line separator at the start of a text: C0, DEL, C1 with NEL, U+2028 and U+2029.
Control controlAt(std::string_view text) {
    auto const byte = [&](std::size_t at) { return at < text.size() ? static_cast<unsigned char>(text[at]) : 0u; };
    if (byte(0) < 0x20 || byte(0) == 0x7F) return {byte(0), 1};
    if (byte(0) == 0xC2 && byte(1) >= 0x80 && byte(1) < 0xA0) return {byte(1), 2};
    if (byte(0) == 0xE2 && byte(1) == 0x80 && (byte(2) == 0xA8 || byte(2) == 0xA9)) return {0x2000 + byte(2) - 0x80, 3};
    return {0, 0};
}

void appendControl(std::string& line, unsigned code) {
    if (code == '\n' || code == '\r' || code == '\t') {
        line += code == '\n' ? "\\n" : code == '\r' ? "\\r" : "\\t";
        return;
    }
    char escape[16];
    std::snprintf(escape, sizeof escape, "\\u%04X", code);
    line += escape;
}

} // namespace

std::string asOneLine(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    while (!text.empty()) {
        auto const [code, length] = controlAt(text);
        if (length == 0)
            line += text.front();
        else
            appendControl(line, code);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return line;
}

void printLine(std::string_view text) { print(asOneLine(text)); }

} // namespace Tessarin
