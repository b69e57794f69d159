#include "fuzz/campaigns/FaultyFiles.h"

#include "fuzz/campaigns/ModelDisk.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <sqlite3.h>
#include <stdexcept>

namespace Tessarin::campaigns::FaultyFiles {
namespace {

sqlite3_vfs* real = nullptr;
sqlite3_mem_methods realMemory{};

std::atomic<bool> isArmed{false};
std::atomic<Layer> layer{Layer::SQLite};
std::atomic<Kind> kind{Kind::InputOutput};
std::atomic<bool> isSticky{false};
std::atomic<std::uint64_t> failAt{UINT64_MAX}, operations{0}, failed{0};
ModelDisk disk;

/// Whether the operation that begins now is one to fail.
bool isDue() {
    auto const number = operations.fetch_add(1);
    if (!isArmed || number < failAt || (!isSticky && number != failAt)) return false;
    failed.fetch_add(1);
    return true;
}

/// For an operation on files: its result code when it shall fail, else SQLITE_OK. `takesSpace`: it can find the disk full.
int faultOf(int code, bool takesSpace = false) {
    disk.operationBegins();
    if (kind == Kind::Reading && code != SQLITE_IOERR_READ) return SQLITE_OK;
    if (layer != Layer::SQLite || kind == Kind::Memory || kind == Kind::ShortWrite || (kind == Kind::Full && !takesSpace))
        return SQLITE_OK;
    if (!isDue()) return SQLITE_OK;
    return kind == Kind::Full ? SQLITE_FULL : code;
}

struct File {
    sqlite3_file base;
    std::shared_ptr<ModelDisk::File> model; // null when it is not followed; lives from opening to closing
    sqlite3_file* inner() { return reinterpret_cast<sqlite3_file*>(this + 1); }
    static File& of(sqlite3_file* file) { return *reinterpret_cast<File*>(file); }
};

template <class Call> int through(sqlite3_file* file, Call call) {
    auto* const inner = File::of(file).inner();
    return call(inner, inner->pMethods);
}

int close(sqlite3_file* file) {
    std::destroy_at(&File::of(file).model);
    return through(file, [](auto* f, auto* m) { return m->xClose(f); });
}
int read(sqlite3_file* file, void* to, int size, sqlite3_int64 at) {
    if (auto const fault = faultOf(SQLITE_IOERR_READ)) return fault;
    return through(file, [&](auto* f, auto* m) { return m->xRead(f, to, size, at); });
}
int write(sqlite3_file* file, void const* from, int size, sqlite3_int64 at) {
    if (auto const fault = faultOf(SQLITE_IOERR_WRITE, true)) return fault;
    bool const isShort = layer == Layer::SQLite && kind == Kind::ShortWrite && isDue();
    if (isShort) size /= 2;
    disk.write(File::of(file).model.get(), at, {static_cast<char const*>(from), static_cast<std::size_t>(size)});
    auto const result = through(file, [&](auto* f, auto* m) { return m->xWrite(f, from, size, at); });
    return isShort ? SQLITE_IOERR_WRITE : result;
}
int truncate(sqlite3_file* file, sqlite3_int64 size) {
    if (auto const fault = faultOf(SQLITE_IOERR_TRUNCATE, true)) return fault;
    disk.truncate(File::of(file).model.get(), size);
    return through(file, [&](auto* f, auto* m) { return m->xTruncate(f, size); });
}
int sync(sqlite3_file* file, int flags) {
    if (auto const fault = faultOf(SQLITE_IOERR_FSYNC, true)) return fault;
    if (auto* const model = File::of(file).model.get()) return disk.sync(model), SQLITE_OK;
    return through(file, [&](auto* f, auto* m) { return m->xSync(f, flags); });
}
int fileSize(sqlite3_file* file, sqlite3_int64* size) {
    if (auto const fault = faultOf(SQLITE_IOERR_FSTAT)) return fault;
    return through(file, [&](auto* f, auto* m) { return m->xFileSize(f, size); });
}
int lock(sqlite3_file* file, int level) {
    if (auto const fault = faultOf(SQLITE_IOERR_LOCK)) return fault;
    return through(file, [&](auto* f, auto* m) { return m->xLock(f, level); });
}
int unlock(sqlite3_file* file, int level) {
    return through(file, [&](auto* f, auto* m) { return m->xUnlock(f, level); });
}
int checkReservedLock(sqlite3_file* file, int* result) {
    if (auto const fault = faultOf(SQLITE_IOERR_CHECKRESERVEDLOCK)) return fault;
    return through(file, [&](auto* f, auto* m) { return m->xCheckReservedLock(f, result); });
}
int fileControl(sqlite3_file* file, int operation, void* argument) {
    return through(file, [&](auto* f, auto* m) { return m->xFileControl(f, operation, argument); });
}
int sectorSize(sqlite3_file*) { return 512; }
int deviceCharacteristics(sqlite3_file*) { return 0; } // promises nothing
int shmMap(sqlite3_file* file, int page, int size, int extend, void volatile** to) {
    if (auto const fault = faultOf(SQLITE_IOERR_SHMMAP, true)) return fault;
    return through(file, [&](auto* f, auto* m) { return m->xShmMap(f, page, size, extend, to); });
}
int shmLock(sqlite3_file* file, int offset, int count, int flags) {
    if (!(flags & SQLITE_SHM_UNLOCK))
        if (auto const fault = faultOf(SQLITE_IOERR_SHMLOCK)) return fault;
    return through(file, [&](auto* f, auto* m) { return m->xShmLock(f, offset, count, flags); });
}
void shmBarrier(sqlite3_file* file) {
    auto* const inner = File::of(file).inner();
    inner->pMethods->xShmBarrier(inner);
}
int shmUnmap(sqlite3_file* file, int remove) {
    return through(file, [&](auto* f, auto* m) { return m->xShmUnmap(f, remove); });
}
int fetch(sqlite3_file*, sqlite3_int64, int, void** to) {
    return *to = nullptr, SQLITE_OK;
} // no memory maps: their writes go unseen
int unfetch(sqlite3_file*, sqlite3_int64, void*) { return SQLITE_OK; }

constexpr sqlite3_io_methods methods{3,
                                     close,
                                     read,
                                     write,
                                     truncate,
                                     sync,
                                     fileSize,
                                     lock,
                                     unlock,
                                     checkReservedLock,
                                     fileControl,
                                     sectorSize,
                                     deviceCharacteristics,
                                     shmMap,
                                     shmLock,
                                     shmBarrier,
                                     shmUnmap,
                                     fetch,
                                     unfetch};

int open(sqlite3_vfs*, char const* name, sqlite3_file* file, int flags, int* outFlags) {
    auto& made = File::of(file);
    made.base.pMethods = nullptr;
    if (auto const fault = faultOf(SQLITE_CANTOPEN, true)) return fault == SQLITE_FULL ? SQLITE_CANTOPEN : fault;
    std::construct_at(&made.model, name ? disk.open(name) : nullptr);
    auto const result = real->xOpen(real, name, made.inner(), flags, outFlags);
    if (made.inner()->pMethods)
        made.base.pMethods = &methods;
    else
        std::destroy_at(&made.model); // it will not be closed
    return result;
}
int remove(sqlite3_vfs*, char const* name, int syncsFolder) {
    if (auto const fault = faultOf(SQLITE_IOERR_DELETE)) return fault;
    disk.remove(name);
    return real->xDelete(real, name, disk.isFollowing() ? 0 : syncsFolder);
}
int access(sqlite3_vfs*, char const* name, int flags, int* result) {
    if (auto const fault = faultOf(SQLITE_IOERR_ACCESS)) return fault;
    return real->xAccess(real, name, flags, result);
}

bool lacksMemory() { return layer == Layer::SQLite && kind == Kind::Memory && isDue(); }
void* allocate(int size) { return lacksMemory() ? nullptr : realMemory.xMalloc(size); }
void* reallocate(void* memory, int size) { return lacksMemory() ? nullptr : realMemory.xRealloc(memory, size); }

void start(Kind newKind, std::uint64_t at, Duration duration, bool arms) {
    isArmed = false;
    kind = newKind;
    isSticky = duration == Duration::Sticky;
    failAt = at;
    operations = 0;
    failed = 0;
    isArmed = arms;
}

} // namespace

void install() {
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &realMemory);
    static sqlite3_mem_methods memory = realMemory;
    memory.xMalloc = allocate;
    memory.xRealloc = reallocate;
    if (sqlite3_config(SQLITE_CONFIG_MALLOC, &memory) != SQLITE_OK)
        throw std::runtime_error("SQLite was used before its faults were installed");
    real = sqlite3_vfs_find(nullptr);
    static sqlite3_vfs vfs = *real;
    vfs.zName = "faulty";
    vfs.pNext = nullptr;
    vfs.szOsFile = static_cast<int>(sizeof(File)) + real->szOsFile;
    vfs.xOpen = open;
    vfs.xDelete = remove;
    vfs.xAccess = access;
    sqlite3_vfs_register(&vfs, 1);
}

void count(Kind counted) { start(counted, UINT64_MAX, Duration::Once, false); }
std::uint64_t counted() { return operations; }
void fail(Kind due, std::uint64_t at, Duration duration) { start(due, at, duration, true); }
void heal() { isArmed = false; }
std::uint64_t failures() { return failed; }

void setLayer(Layer wanted) { layer = wanted; }
int systemFault(Needs needs) {
    if (layer != Layer::System || kind == Kind::ShortWrite || kind == Kind::Reading ||
        (kind == Kind::Full && needs != Needs::Space) || !isDue())
        return 0;
    return kind == Kind::Full ? ENOSPC : kind == Kind::Memory ? ENOMEM : EIO;
}
bool isShortWrite() { return layer == Layer::System && kind == Kind::ShortWrite && isDue(); }

void beginPowerTrial(std::string folder) { disk.follow(std::move(folder)); }
void cutPower(std::uint64_t at, std::function<std::uint64_t(std::uint64_t)> random, std::function<void()> atCut) {
    disk.cutAt(at, std::move(random), std::move(atCut));
}
bool writeDisk(std::string const& folder) { return disk.writeTo(folder); }
void endPowerTrial() { disk.follow({}); }

} // namespace Tessarin::campaigns::FaultyFiles
