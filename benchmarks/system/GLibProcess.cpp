#include "benchmarks/system/Groups.h"

#ifdef TESSARIN_HAS_GIO
#include <cstdlib>
#include <gio/gio.h>

namespace Tessarin::benchmarks {
namespace {

void run(char const* program, int count) {
    char const* const arguments[] = {program, nullptr};
    for (int i = 0; i < count; ++i) {
        auto const flags = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_PIPE);
        GSubprocess* const process = g_subprocess_newv(arguments, flags, nullptr);
        GBytes *output = nullptr, *errors = nullptr;
        if (!process || !g_subprocess_communicate(process, nullptr, nullptr, &output, &errors, nullptr)) std::abort();
        if (!g_subprocess_get_successful(process)) std::abort();
        g_bytes_unref(output), g_bytes_unref(errors);
        g_object_unref(process);
    }
}

} // namespace
RunMany glibPeer() { return &run; }
} // namespace Tessarin::benchmarks
#else
Tessarin::benchmarks::RunMany Tessarin::benchmarks::glibPeer() { return nullptr; }
#endif
