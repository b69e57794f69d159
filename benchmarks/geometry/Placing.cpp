// Placing rectangles in a container by content mode, beside the same written by hand for finite rectangles that are in order.
#include "Tessarin/platform/foundation/geometry/NSRect.h"
#include "benchmarks/support/Threads.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace Tessarin::benchmarks {
namespace {

constexpr int runs = 21;
constexpr std::size_t count = 1'000'000;

struct Plain {
    double x, y, width, height;
};

Plain placedByHand(Plain const& rect, Plain const& container, RectContentMode mode) {
    double width = rect.width, height = rect.height;
    switch (mode) {
    case RectContentMode::None: return rect;
    case RectContentMode::ScaleToFill: return container;
    case RectContentMode::ScaleAspectFit:
    case RectContentMode::ScaleAspectFill: {
        if (width <= 0 || height <= 0) {
            width = height = 0;
            break;
        }
        double const across = container.width / width, down = container.height / height;
        double const scale = (mode == RectContentMode::ScaleAspectFit) == (across < down) ? across : down;
        width *= scale;
        height *= scale;
        break;
    }
    default: break;
    }
    double x = container.x + (container.width - width) / 2, y = container.y + (container.height - height) / 2;
    switch (mode) {
    case RectContentMode::Left:
    case RectContentMode::TopLeft:
    case RectContentMode::BottomLeft: x = container.x; break;
    case RectContentMode::Right:
    case RectContentMode::TopRight:
    case RectContentMode::BottomRight: x = container.x + container.width - width; break;
    default: break;
    }
    switch (mode) {
    case RectContentMode::Top:
    case RectContentMode::TopLeft:
    case RectContentMode::TopRight: y = container.y; break;
    case RectContentMode::Bottom:
    case RectContentMode::BottomLeft:
    case RectContentMode::BottomRight: y = container.y + container.height - height; break;
    default: break;
    }
    return {x, y, width, height};
}

struct Work {
    std::vector<NSRect> rects = std::vector<NSRect>(count), containers = rects, placed = rects;
    std::vector<Plain> plainRects = std::vector<Plain>(count), plainContainers = plainRects, plainPlaced = plainRects;
    std::vector<RectContentMode> modes = std::vector<RectContentMode>(count);

    Work() {
        std::mt19937 random(4);
        auto const some = [&](double least) { return std::uniform_real_distribution(least, 1000.0)(random); };
        for (std::size_t at = 0; at < count; ++at) {
            rects[at] = {{some(-1000), some(-1000)}, {some(1), some(1)}};
            containers[at] = {{some(-1000), some(-1000)}, {some(1), some(1)}};
            plainRects[at] = {rects[at].origin.x, rects[at].origin.y, rects[at].size.width, rects[at].size.height};
            auto const& container = containers[at];
            plainContainers[at] = {container.origin.x, container.origin.y, container.size.width, container.size.height};
        }
    }

    double ours() {
        return costOf([&] {
                   for (std::size_t at = 0; at < count; ++at) placed[at] = rects[at].placedIn(containers[at], modes[at]);
               })
            .processor;
    }
    double byHand() {
        return costOf([&] {
                   for (std::size_t at = 0; at < count; ++at)
                       plainPlaced[at] = placedByHand(plainRects[at], plainContainers[at], modes[at]);
               })
            .processor;
    }
    /// A figure counts only when both did the same.
    void compare() const {
        for (std::size_t at = 0; at < count; ++at) {
            auto const& a = placed[at];
            auto const& b = plainPlaced[at];
            double const difference = std::abs(a.origin.x - b.x) + std::abs(a.origin.y - b.y) + std::abs(a.size.width - b.width) +
                                      std::abs(a.size.height - b.height);
            if (difference <= 1e-6) continue;
            std::fprintf(stderr, "rectangle %zu was placed elsewhere\n", at);
            std::exit(1);
        }
    }
};

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin;
    using namespace Tessarin::benchmarks;
    Report report(argc, argv);
    Work work;
    auto const add = [&](char const* row, double target, auto const& modeOf) {
        if (!report.wants("placing", row)) return;
        for (std::size_t at = 0; at < count; ++at) work.modes[at] = modeOf(at);
        auto const result = medians(
            runs, [&] { return work.ours(); }, [&] { return work.byHand(); });
        work.compare();
        report.add({.group = "placing",
                    .row = row,
                    .unit = "ms per 1,000,000",
                    .ours = result.ours * 1e3,
                    .peer = "by hand",
                    .theirs = result.theirs * 1e3,
                    .target = target});
    };
    std::mt19937 random(5);
    std::uniform_int_distribution any(0, static_cast<int>(RectContentMode::BottomRight));
    add("each in a mode of its own", 1.1, [&](std::size_t) { return RectContentMode{any(random)}; });
    add("aspect fit", 1.1, [](std::size_t) { return RectContentMode::ScaleAspectFit; });
    add("aspect fill", 1.1, [](std::size_t) { return RectContentMode::ScaleAspectFill; });
    add("bottom right", 1.1, [](std::size_t) { return RectContentMode::BottomRight; });
    return report.finish();
}
