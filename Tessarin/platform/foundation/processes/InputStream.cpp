#include "Tessarin/platform/foundation/processes/ProcessStreamsPrivate.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace Tessarin::processes {

void InputStream::begin(Handle pipe) {
    pipe_ = std::move(pipe);
    if (!pipe_) return;
    if (input_.kind == SubprocessInput::Kind::Pieces) return askForPiece();
    ready(); // most inputs fit the pipe
}

void InputStream::ready() {
    while (pipe_) {
        auto const rest = input_.bytes.bytes().subspan(written_);
        if (rest.empty()) return input_.kind == SubprocessInput::Kind::Pieces ? askForPiece() : close();
#ifdef F_SETPIPE_SZ
        if (written_ == 0 && rest.size() > 128 * 1024) ::fcntl(pipe_.number(), F_SETPIPE_SZ, 1 << 19); // or it stays small
#endif
        auto const count = ::write(pipe_.number(), rest.data(), rest.size());
        if (count > 0)
            written_ += static_cast<std::size_t>(count);
        else if (errno == EAGAIN)
            return awaitRoom();
        else if (errno != EINTR)
            return close(); // the child reads no more, which is its own affair
    }
}

void InputStream::awaitRoom() {
    if (isWatched_) return;
    int const problem = owner_.loop().watch(pipe_.number(), ProcessLoop::For::Writing, *this);
    isWatched_ = problem == 0;
    if (problem == 0) return;
    close();
    owner_.giveUp(problem);
}

void InputStream::askForPiece() {
    if (isWatched_) owner_.loop().unwatch(pipe_.number(), *this);
    isWatched_ = false;
    dispatch_async(owner_.queue(), [this, kept = owner_.keep()]() mutable {
        auto piece = input_.next();
        auto& loop = owner_.loop();
        loop.post([this, kept = std::move(kept), piece = std::move(piece)] { take(piece); });
    });
}

void InputStream::take(std::optional<NSData> piece) {
    if (!pipe_) return;
    if (!piece) return close();
    input_.bytes = std::move(*piece);
    written_ = 0;
    ready();
}

void InputStream::close() {
    if (isWatched_) owner_.loop().unwatch(pipe_.number(), *this);
    isWatched_ = false;
    pipe_.close();
    input_.bytes = {};
}

} // namespace Tessarin::processes
