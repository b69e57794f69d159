#include "Tessarin/system/Gestalt+Build.h"

#include "Tessarin/Version.h"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace Tessarin::Gestalt {

std::string libraryVersion() { return TESSARIN_VERSION; }

std::string compiler() {
#ifdef __clang__
    return "Clang " + std::to_string(__clang_major__) + "." + std::to_string(__clang_minor__) + "." +
           std::to_string(__clang_patchlevel__);
#else
    return "GCC " + std::to_string(__GNUC__) + "." + std::to_string(__GNUC_MINOR__) + "." + std::to_string(__GNUC_PATCHLEVEL__);
#endif
}

bool isDebugBuild() {
#ifdef NDEBUG
    return false;
#else
    return true;
#endif
}

std::vector<std::string> sanitizers() {
    std::vector<std::string> all;
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
    all.emplace_back("address");
#endif
#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
    all.emplace_back("thread");
#endif
#if __has_feature(undefined_behavior_sanitizer)
    all.emplace_back("undefined");
#endif
    return all;
}

} // namespace Tessarin::Gestalt
