#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/runtime/Cell.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <cstdint>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

#ifndef __cpp_rtti
#error "Tessarin: Timing asks what class an object is of; compile without -fno-rtti"
#endif

namespace Tessarin {

/// A named stretch of time with laps, for diagnostics. Started timings stand in `activeTimes` under their titles, so that code
/// in other places adds laps to the same one. Registering and the appending of laps go through the timing queue, looking up and
/// reading do not: a lap by key right after a start may find nothing yet, a report right after a lap may lack its line. The
/// moments themselves are always those of the calls. Everything may be called from any thread.
///
///     Timing::start("load", __FILE__);
///     Timing::type().lap("parsed", "load");
///     Timing::type().stop("load");            // prints 🕘 12.345678 s: load in Loader.cpp, and a line for each lap
class TESSARIN_API Timing : public std::enable_shared_from_this<Timing> {
public:
    struct Lap {
        std::optional<std::string> note;
        NSDate date;
        friend bool operator==(Lap const&, Lap const&) = default;
    };
    using Laps = std::vector<Lap>;
    using ActiveTimes = std::map<std::string, Ref<Timing>>;

    /// The class's own overridable operations; a subclass derives from it and hides `type()`.
    class TESSARIN_API Type {
    public:
        virtual ~Type() = default;
        /// Starts a timing and gives it at once; the timing queue then registers it under `title`, in place of any other.
        virtual Ref<Timing> start(std::string title, std::string file);
        /// A lap for the timing under `key`. Null, and nothing is done, when there is none.
        virtual Ref<Timing> lap(std::optional<std::string> note, std::string const& key);
        /// Stops the timing under `key` and prints its report; nothing when there is none. It stays registered.
        virtual void stop(std::string const& key);
        /// Runs the block `iterations` times here, with a lap after each, and prints the average and the laps: those that the
        /// timing queue has appended by then, for it is not waited for. A negative number is none.
        virtual void time(std::optional<std::string> const& name, int iterations, FunctionRef<void()> block);

        Ref<Timing> start(std::string title = {}) { return start(std::move(title), {}); }
        Ref<Timing> lap(std::optional<std::string> note = {}) { return lap(std::move(note), {}); }
        void stop() { stop({}); }
    };
    static Type& type();
    static Ref<Timing> start(std::string title, std::string file = {}) { return type().start(std::move(title), std::move(file)); }
    static void time(std::optional<std::string> const& name, int iterations, FunctionRef<void()> block) {
        type().time(name, iterations, block);
    }
    static void time(std::optional<std::string> const& name, FunctionRef<void()> block) { type().time(name, 10, block); }
    static void time(FunctionRef<void()> block) { type().time(std::nullopt, 10, block); }

    /// The timings by title, as a copy. Those that are started stay until they are removed here.
    static ActiveTimes activeTimes();
    static void setActiveTimes(ActiveTimes times);
    static void modifyActiveTimes(FunctionRef<void(ActiveTimes&)> change);
    /// The timing queue; serial.
    static dispatch_queue_t const& queue();

    /// Writes the registered timings, or those given, as a trace-event JSON file, which the trace viewers of browsers open:
    /// a slice per timing on the row of the thread that made it, nested ones within their outer ones, laps as marks. Timings of
    /// one thread that overlap without nesting get rows of their own; what still runs lasts until now. Throws ErrorException.
    static void writeTraceToURL(NSURL const& url);
    static void writeTraceToURL(NSURL const& url, std::vector<Ref<Timing>> const& timings);

    Timing(Timing const&) = delete;
    Timing& operator=(Timing const&) = delete;
    virtual ~Timing();

    std::string const& title() const noexcept { return title_; }
    /// The file that started it; only what follows its last "/" is printed.
    std::string const& filename() const noexcept { return filename_; }
    NSDate start() const noexcept { return start_; }

    /// Absent until it is stopped.
    virtual std::optional<NSDate> finish() const;
    virtual void setFinish(std::optional<NSDate> finish);
    virtual void modifyFinish(FunctionRef<void(std::optional<NSDate>&)> change);
    virtual Laps laps() const;
    virtual void setLaps(Laps laps);
    virtual void modifyLaps(FunctionRef<void(Laps&)> change);

protected:
    Timing() = default;
    /// Starts now; does not register.
    virtual void init(std::string key, std::string file);

public:
    /// Takes the date here; the timing queue appends the lap. Also when it is stopped.
    virtual void lap(std::optional<std::string> note);
    void lap() { lap(std::nullopt); }
    /// Sets `finish` to now; once more moves it.
    virtual void stop();
    /// The report: the whole time up to `finish`, or to now, then a line for each lap with the time since the one before. Without
    /// a line end.
    virtual std::string logString() const;
    /// Prints the report in one piece.
    virtual void log() const;
    virtual std::string description() const;
    /// In seconds: from the start to the last lap, by the number of laps; 0 without any.
    virtual double averageLapDuration() const;

    /// The system's number of the thread that made it, for traces.
    std::int64_t thread() const noexcept { return thread_; }

private:
    std::string title_;
    std::string filename_;
    NSDate start_; // when it was made
    Cell<std::optional<NSDate>> finish_;
    Cell<Laps> laps_;
    std::int64_t thread_ = 0; // constant after init, as are title and filename
};

TESSARIN_API std::ostream& operator<<(std::ostream& out, Timing const& timing);

} // namespace Tessarin
