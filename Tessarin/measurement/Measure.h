#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/Required.h"
#include <optional>
#include <string_view>

namespace Tessarin {

struct MeasuredClosure {
    Required<FunctionRef<void()>> closure;
};
struct MeasuredBlock {
    Required<FunctionRef<void()>> block;
};

/// Runs the closure here and prints "load took 0.25 sec": the seconds in their shortest form.
///
///     measure("load", {.closure = [&] { load(); }}); // load took 0.0312... sec
///     measure("load", {.block = [&] { load(); }});   // load:0.03
TESSARIN_API void measure(std::string_view name, MeasuredClosure measured);
/// Runs the block here and prints "load:0.25", or ":0.25" without a name: the seconds with two decimals. That the two forms
/// print differently is meant; both are looked for in logs.
TESSARIN_API void measure(std::optional<std::string_view> name, MeasuredBlock measured);
TESSARIN_API void measure(MeasuredBlock measured);

/// For code that only a diagnostic build runs. This one never calls the closure.
inline void IF_DEBUG(FunctionRef<void()>) {}

} // namespace Tessarin
