#include "Tessarin/platform/foundation/files/NSFileManager.h"

#include "Tessarin/platform/foundation/values/NSError.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin {
namespace {

namespace fs = std::filesystem;

void check(std::error_code const& error, std::string const& path) {
    if (error) throw ErrorException(NSError::errorWithErrno(error.value(), path));
}

std::string pathOf(NSURL const& url) {
    auto path = url.path();
    if (!url.isFileURL() || path.find('\0') != path.npos)
        throw ErrorException(NSError::errorWithErrno(EINVAL, url.absoluteString()));
    return path;
}

/// Nothing may stand at a destination: neither copying nor moving replaces anything.
void requireFree(std::string const& path) {
    std::error_code ignored;
    if (fs::exists(fs::symlink_status(path, ignored))) check(std::make_error_code(std::errc::file_exists), path);
}

std::string_view typeText(mode_t mode) {
    if (S_ISREG(mode)) return NSFileTypeRegular;
    if (S_ISDIR(mode)) return NSFileTypeDirectory;
    if (S_ISLNK(mode)) return NSFileTypeSymbolicLink;
    return "NSFileTypeUnknown";
}

} // namespace

Ref<NSFileManager> const& NSFileManager::defaultManager() {
    static auto const& shared = *new Ref<NSFileManager>(make<NSFileManager>());
    return shared;
}

bool NSFileManager::fileExistsAtPath(std::string_view path) const {
    bool ignored = false;
    return fileExistsAtPath(path, ignored);
}

bool NSFileManager::fileExistsAtPath(std::string_view path, bool& isDirectory) const {
    struct stat status {};
    if (path.find('\0') != path.npos) return false;
    if (::stat(std::string{path}.c_str(), &status) != 0) return false;
    isDirectory = S_ISDIR(status.st_mode);
    return true;
}

bool NSFileManager::isReadableFileAtPath(std::string_view path) const { return ::access(std::string{path}.c_str(), R_OK) == 0; }
bool NSFileManager::isWritableFileAtPath(std::string_view path) const { return ::access(std::string{path}.c_str(), W_OK) == 0; }

void NSFileManager::createDirectoryAtURL(NSURL const& url, IntermediateDirectories intermediate) const {
    auto const path = pathOf(url);
    std::error_code error;
    if (intermediate == IntermediateDirectories::Create) {
        fs::create_directories(path, error);
    } else if (!fs::create_directory(path, error) && !error) {
        error = std::make_error_code(std::errc::file_exists);
    }
    check(error, path);
}

void NSFileManager::removeItemAtURL(NSURL const& url) const {
    auto const path = pathOf(url);
    std::error_code error;
    if (fs::remove_all(path, error) == 0 && !error) error = std::make_error_code(std::errc::no_such_file_or_directory);
    check(error, path);
}

void NSFileManager::copyItemAtURL(NSURL const& source, NSURL const& destination) const {
    auto const from = pathOf(source), to = pathOf(destination);
    requireFree(to);
    std::error_code error;
    fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
    check(error, from);
}

void NSFileManager::moveItemAtURL(NSURL const& source, NSURL const& destination) const {
    auto const from = pathOf(source), to = pathOf(destination);
    requireFree(to);
    std::error_code error;
    fs::rename(from, to, error);
    if (error == std::errc::cross_device_link) {
        copyItemAtURL(source, destination);
        return removeItemAtURL(source);
    }
    check(error, from);
}

std::vector<NSURL> NSFileManager::contentsOfDirectoryAtURL(NSURL const& url) const {
    auto const path = pathOf(url);
    std::error_code error;
    std::vector<std::string> names;
    for (fs::directory_iterator at(path, error), end; !error && at != end; at.increment(error))
        names.push_back(at->path().filename());
    check(error, path);
    std::ranges::sort(names);
    std::vector<NSURL> urls;
    for (auto const& name : names) urls.push_back(url.URLByAppendingPathComponent(name));
    return urls;
}

std::optional<NSData> NSFileManager::contentsAtPath(std::string_view path) const try {
    return NSData::contentsOfFile(std::string{path});
} catch (ErrorException const&) {
    return {};
}

Dictionary NSFileManager::attributesOfItemAtURL(NSURL const& url) const {
    auto const path = pathOf(url);
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) check({errno, std::generic_category()}, path);
    static constexpr double from1970To2001 = 978'307'200;
    auto const seconds =
        static_cast<double>(status.st_mtim.tv_sec) - from1970To2001 + static_cast<double>(status.st_mtim.tv_nsec) * 1e-9;
    return {{NSFileType, typeText(status.st_mode)},
            {NSFileSize, status.st_size},
            {NSFileModificationDate, Value::date(seconds)},
            {NSFilePosixPermissions, status.st_mode & 07777}};
}

std::string NSFileManager::currentDirectoryPath() const {
    std::error_code ignored;
    return fs::current_path(ignored).native();
}

} // namespace Tessarin
