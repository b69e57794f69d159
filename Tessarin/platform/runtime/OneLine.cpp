#include "Tessarin/platform/runtime/OneLinePrivate.h"

#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/QuotedText.h"

#include <cstdio>

namespace Tessarin {
namespace {

struct Control {
    unsigned code;
    std::size_t length; // in bytes; 0: none stands there
};

unsigned byteAt(std::string_view text, std::size_t at) { return at < text.size() ? static_cast<unsigned char>(text[at]) : 0u; }

/// The control character or line separator at the start of a text: C0, DEL, C1 with NEL, U+2028 and U+2029.
Control controlAt(std::string_view text) {
    auto const byte = [&](std::size_t at) { return byteAt(text, at); };
    if (byte(0) < 0x20 || byte(0) == 0x7F) return {byte(0), 1};
    if (byte(0) == 0xC2 && byte(1) >= 0x80 && byte(1) < 0xA0) return {byte(1), 2};
    if (byte(0) == 0xE2 && byte(1) == 0x80 && (byte(2) == 0xA8 || byte(2) == 0xA9)) return {0x2000 + byte(2) - 0x80, 3};
    return {0, 0};
}

/// The bytes of the character at the start of a text; 0 where none is well formed.
std::size_t characterLength(std::string_view text) {
    auto const first = byteAt(text, 0), second = byteAt(text, 1);
    auto const follows = [&](std::size_t at) { return (byteAt(text, at) & 0xC0) == 0x80; };
    if (first < 0x80) return 1;
    if (first < 0xC2 || first > 0xF4 || !follows(1)) return 0;
    if (first < 0xE0) return 2;
    if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) || !follows(2)) return 0; // too long; a surrogate
    if (first < 0xF0) return 3;
    return (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90) || !follows(3) ? 0 : 4;
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

/// Appends what stands at the start of `text` in its quoted form. Gives its length.
std::size_t appendQuotedCharacter(std::string& line, std::string_view text) {
    if (auto const [code, length] = controlAt(text); length > 0) {
        appendControl(line, code);
        return length;
    }
    auto const length = characterLength(text);
    if (length > 1) {
        line += text.substr(0, length);
        return length;
    }
    char escape[8] = {'\\', text[0], 0};
    if (length == 0) std::snprintf(escape, sizeof escape, "\\x%02X", byteAt(text, 0));
    line += escape;
    return 1;
}

bool staysInQuotes(char c) { return c >= 0x20 && c < 0x7F && c != '"' && c != '\\'; } // char is signed or not: 0x80 never does

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

void appendQuotedText(std::string& line, std::string_view text) {
    line += '"';
    for (std::size_t at = 0; at < text.size();) {
        auto const start = at;
        while (at < text.size() && staysInQuotes(text[at])) ++at;
        line += text.substr(start, at - start);
        if (at < text.size()) at += appendQuotedCharacter(line, text.substr(at));
    }
    line += '"';
}

std::string quotedText(std::string_view text) {
    std::string line;
    line.reserve(text.size() + 2);
    appendQuotedText(line, text);
    return line;
}

void printLine(std::string_view text) { print(asOneLine(text)); }

} // namespace Tessarin
