#pragma once
#include <cstring>
#include <link.h>

/// The exit status of a program that does `work`: with "--libraries" as its argument, how many libraries it has loaded, without
/// the loader and the kernel's own.
inline int runOrCountLibraries(int argc, char** argv, int (*work)(char const* file)) {
    if (argc < 2 || std::strcmp(argv[1], "--libraries") != 0) return work(argc < 2 ? "" : argv[1]);
    int count = 0;
    dl_iterate_phdr(
        [](dl_phdr_info* library, std::size_t, void* counter) {
            auto const* const name = std::strrchr(library->dlpi_name, '/'); // null: the program itself, or the kernel's
            *static_cast<int*>(counter) += name && std::strncmp(name, "/ld-", 4) != 0 ? 1 : 0;
            return 0;
        },
        &count);
    return count;
}
