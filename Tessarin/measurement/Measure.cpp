#include "Tessarin/measurement/Measure.h"

#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/NumberText.h"

#include <cmath>
#include <fmt/format.h>

namespace Tessarin {

void measure(std::string_view name, MeasuredClosure measured) {
    NSDate const start;
    measured.closure.get()();
    auto const elapsed = NSDate{}.timeIntervalSinceDate(start);
    print(fmt::format("{} took {} sec", name, shortestText(elapsed)));
}

void measure(std::optional<std::string_view> name, MeasuredBlock measured) {
    NSDate const start;
    measured.block.get()();
    auto const elapsed = std::abs(start.timeIntervalSinceNow());
    print(fmt::format("{}:{:.2f}", name.value_or(""), elapsed));
}

void measure(MeasuredBlock measured) { measure(std::nullopt, measured); }

} // namespace Tessarin
