#include "Tessarin/platform/foundation/processes/SubprocessStreams.h"

namespace Tessarin {

SubprocessInput SubprocessInput::inherited() { return {.kind = Kind::Inherited}; }
SubprocessInput SubprocessInput::text(std::string_view text) { return data(NSData::dataWithText(text)); }
SubprocessInput SubprocessInput::data(NSData data) { return {.kind = Kind::Data, .bytes = std::move(data)}; }
SubprocessInput SubprocessInput::file(std::string path) { return {.kind = Kind::File, .path = std::move(path)}; }
SubprocessInput SubprocessInput::pieces(NextPiece next) {
    if (!next) return nothing();
    return {.kind = Kind::Pieces, .next = std::move(next)};
}

SubprocessOutput SubprocessOutput::captured(std::size_t limit) { return {.kind = Kind::Captured, .limit = limit}; }
SubprocessOutput SubprocessOutput::discarded() { return {.kind = Kind::Discarded}; }
SubprocessOutput SubprocessOutput::inherited() { return {.kind = Kind::Inherited}; }
SubprocessOutput SubprocessOutput::lines(EachLine each) {
    if (!each) return discarded();
    return {.kind = Kind::Lines, .line = std::move(each)};
}
SubprocessOutput SubprocessOutput::pieces(EachPiece each) {
    if (!each) return discarded();
    return {.kind = Kind::Pieces, .piece = std::move(each)};
}
SubprocessOutput SubprocessOutput::withOutput() { return {.kind = Kind::WithOutput}; }

} // namespace Tessarin
