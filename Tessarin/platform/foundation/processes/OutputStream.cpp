#include "Tessarin/platform/foundation/processes/ProcessStreamsPrivate.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <new>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Tessarin::processes {

using Kind = SubprocessOutput::Kind;

void OutputStream::begin(Handle pipe) {
    pipe_ = std::move(pipe);
    if (pipe_) watch();
}

void OutputStream::watch() {
    int const problem = owner_.loop().watch(pipe_.number(), ProcessLoop::For::Reading, *this);
    isWatched_ = problem == 0;
    if (problem != 0) owner_.giveUp(problem);
}
void OutputStream::unwatch() {
    if (isWatched_) owner_.loop().unwatch(pipe_.number(), *this);
    isWatched_ = false;
}

void OutputStream::giveUp(int problem) {
    isGivenUp_ = true;
    owner_.giveUp(problem);
}

void OutputStream::ready() {
    try {
        readTurn();
    } catch (std::bad_alloc const&) {
        giveUp(ENOMEM);
    }
}

void OutputStream::readTurn() {
    constexpr int turn = 4; // then others have theirs
    bool goesOn = true;
    for (int part = 0; part < turn && goesOn && isWatched_; ++part) readPart(owner_.loop().scratch(), goesOn);
}

void OutputStream::readPart(std::span<std::byte> room, bool& goesOn) {
    auto const count = ::read(pipe_.number(), room.data(), room.size());
    goesOn = count > 0 || (count < 0 && errno == EINTR);
    if (count > 0) return take(room.first(static_cast<std::size_t>(count)));
    if (count == 0 || (errno != EAGAIN && errno != EINTR)) close();
}

void OutputStream::take(std::span<std::byte const> bytes) {
#ifdef F_SETPIPE_SZ
    constexpr std::size_t usual = 64 * 1024;
    if (bytes.size() >= usual && !std::exchange(isLarge_, true)) ::fcntl(pipe_.number(), F_SETPIPE_SZ, 1 << 19);
#endif
    if (isGivenUp_) return;
    output_.kind == Kind::Captured ? capture(bytes) : handOn(bytes);
}

void OutputStream::capture(std::span<std::byte const> bytes) {
    auto const room = std::min(output_.limit - captured_.size(), bytes.size());
    captured_.insert(captured_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(room));
    if (room < bytes.size()) giveUp(EFBIG);
}

void OutputStream::handOn(std::span<std::byte const> bytes) {
    auto const size = bytes.size();
    dispatch_async(owner_.queue(), [this, kept = owner_.keep(), data = NSData::dataWithBytes(bytes)] {
        output_.kind == Kind::Lines ? splitLines(data.text()) : output_.piece(data);
        wasLookedAt(data.length());
    });
    if (underWay_.fetch_add(size) + size < mostUnderWay) return;
    unwatch();
    isPaused_.store(true);
    if (underWay_.load() < mostUnderWay / 2 && isPaused_.exchange(false)) watch(); // the queue was faster
}

void OutputStream::wasLookedAt(std::size_t size) {
    if (underWay_.fetch_sub(size) - size >= mostUnderWay / 2 || !isPaused_.exchange(false)) return;
    owner_.loop().post([this, kept = owner_.keep()] {
        if (pipe_) watch();
    });
}

void OutputStream::splitLines(std::string_view text) {
    while (!text.empty()) {
        auto const end = text.find('\n');
        line_ += text.substr(0, end);
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
        if (end == text.npos) {
            handPartsOn(SubprocessOutput::longestLine + 1); // one byte more may be the "\r" of its end
            continue;
        }
        if (line_.ends_with('\r')) line_.pop_back();
        handPartsOn(SubprocessOutput::longestLine);
        output_.line(line_);
        line_.clear();
    }
}

/// Leaves no more of the line than that.
void OutputStream::handPartsOn(std::size_t most) {
    while (line_.size() > most) {
        output_.line(std::string_view{line_}.substr(0, SubprocessOutput::longestLine));
        line_.erase(0, SubprocessOutput::longestLine);
    }
}

void OutputStream::endLines() {
    handPartsOn(SubprocessOutput::longestLine);
    if (!line_.empty()) output_.line(line_);
    line_.clear();
}

void OutputStream::finish() {
    try {
        readRest();
    } catch (std::bad_alloc const&) {
        giveUp(ENOMEM);
    }
    close();
}

/// What others write meanwhile is not the child's.
void OutputStream::readRest() {
    int left = 0;
    if (!pipe_ || ::ioctl(pipe_.number(), FIONREAD, &left) != 0 || left <= 0) return;
    bool goesOn = true;
    auto const room = owner_.loop().scratch();
    for (auto rest = static_cast<std::size_t>(left); rest > 0 && goesOn && pipe_; rest -= std::min(rest, room.size()))
        readPart(room.first(std::min(rest, room.size())), goesOn);
}

void OutputStream::close() {
    if (!pipe_) return;
    unwatch();
    pipe_.close();
    if (output_.kind == Kind::Lines) dispatch_async(owner_.queue(), [this, kept = owner_.keep()] { endLines(); });
}

} // namespace Tessarin::processes
