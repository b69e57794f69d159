#include "Progress.h"

#include "Tessarin/dispatch/Dispatcher.h"
#include <cstdio>
#include <unistd.h>

using namespace Tessarin;

namespace Catalogue {

void Progress::init() { isTerminal_ = isatty(STDOUT_FILENO) == 1; }

void Progress::begin(std::size_t total) {
    dispatch_async_main([progress = self<Progress>(), total] {
        progress->total_ = total;
        progress->draw(0);
    });
}

void Progress::advanceTo(std::size_t done) {
    dispatch_async_main([progress = self<Progress>(), done] { progress->draw(done); });
}

void Progress::draw(std::size_t done) {
    auto const percent = total_ ? done * 100 / total_ : 100;
    if (isTerminal_) {
        constexpr std::size_t width = 40;
        std::string bar(percent * width / 100, '#');
        bar.resize(width, '.');
        std::printf("\r[%s] %3zu %%  %zu of %zu%s", bar.c_str(), percent, done, total_, done == total_ ? "\n" : "");
    } else if (percent / 10 > lastTenth_) {
        lastTenth_ = percent / 10;
        std::printf("imported %zu of %zu nodes of the tree\n", done, total_);
    }
    std::fflush(stdout);
}

} // namespace Catalogue
