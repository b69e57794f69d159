#pragma once

namespace Tessarin {

/// How something stands: see `NSSize::aspectRatioType`. A square is Landscape.
enum class AspectRatioType { Portrait, Landscape };

} // namespace Tessarin
