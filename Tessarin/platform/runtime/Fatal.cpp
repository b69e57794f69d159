#include "Tessarin/platform/runtime/Fatal.h"

#include "Tessarin/platform/runtime/OneLinePrivate.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace Tessarin {
namespace {

void writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        auto const written = ::write(descriptor, text.data(), text.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::string asLine(std::string_view text) {
    std::string line{text};
    line += '\n';
    return line;
}

} // namespace

void fatal(std::string_view message) {
    writeAll(STDERR_FILENO, asLine(asOneLine(message)));
    std::abort();
}

void print(std::string_view text) {
    std::fflush(stdout); // what the application printed before stays before
    writeAll(STDOUT_FILENO, asLine(text));
}

} // namespace Tessarin
