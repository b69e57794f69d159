#pragma once
#include "Tessarin/Export.h"
#include <cstddef>

namespace Tessarin {

/// Memory in pages of 4 KiB, aligned to their size, for what is made and released by the hundred thousand. Comes in chunks of
/// 2 MiB, from the second on as huge pages, where fresh memory costs a tenth; a chunk that is free again goes back to the
/// system, all but one. Any thread. Throws std::bad_alloc.
class TESSARIN_API PagePool {
public:
    static constexpr std::size_t pageSize = 4096;

    static void* take();
    static void give(void* page) noexcept;
};

} // namespace Tessarin
