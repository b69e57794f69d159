#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/values/NSData.h"
#include "Tessarin/platform/runtime/Closure.h"
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

/// Where a subprocess reads its standard input from: nothing at all unless something is named. Move-only.
///
///     Subprocess::run({.program = "sort", .input = SubprocessInput::text("b\na\n")});
struct TESSARIN_API SubprocessInput {
    enum class Kind { Nothing, Inherited, Data, File, Pieces };
    using NextPiece = Closure<std::optional<NSData>()>;

    static SubprocessInput nothing() { return {}; } // /dev/null
    /// The application's own.
    static SubprocessInput inherited();
    static SubprocessInput text(std::string_view text);
    static SubprocessInput data(NSData data);
    static SubprocessInput file(std::string path);
    /// `next` is asked on the subprocess's queue whenever the last piece has been written; absent is the end.
    static SubprocessInput pieces(NextPiece next);

    Kind kind = Kind::Nothing;
    NSData bytes = {};
    std::string path = {};
    NextPiece next = {};
};

/// What becomes of what a subprocess writes: kept for its result unless something else is named. Move-only.
///
///     Subprocess::run({.program = "make", .output = SubprocessOutput::lines([](auto line) { show(line); }),
///                      .errors = SubprocessOutput::withOutput()});
struct TESSARIN_API SubprocessOutput {
    enum class Kind { Captured, Discarded, Inherited, Lines, Pieces, WithOutput };
    using EachLine = Closure<void(std::string_view)>;
    using EachPiece = Closure<void(NSData const&)>;
    static constexpr std::size_t longestLine = std::size_t{16} << 20; // bytes

    /// A subprocess that writes more than so many bytes is ended with the error EFBIG; the result holds the first of them.
    static SubprocessOutput captured(std::size_t limit = SIZE_MAX);
    static SubprocessOutput discarded(); // /dev/null
    /// Goes where the application's own goes.
    static SubprocessOutput inherited();
    /// Each line, without its "\n" or "\r\n", on the subprocess's queue; the last one also when it does not end. What is longer
    /// than `longestLine` comes in parts of that length. While `each` is slow the subprocess waits.
    static SubprocessOutput lines(EachLine each);
    /// The bytes as they come.
    static SubprocessOutput pieces(EachPiece each);
    /// Of errors only: to where the output goes, in the order of writing.
    static SubprocessOutput withOutput();

    Kind kind = Kind::Captured;
    std::size_t limit = SIZE_MAX;
    EachLine line = {};
    EachPiece piece = {};
};

} // namespace Tessarin
