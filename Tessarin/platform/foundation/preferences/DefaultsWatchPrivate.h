#pragma once
#include "Tessarin/platform/runtime/Ref.h"
#include <string>

namespace Tessarin::defaults {

class DefaultsSuite;

/// Tells a suite when somebody writes, replaces or removes its file. One thread for the whole process, which sleeps until the
/// system reports something. Does nothing where the system refuses to watch: then changes are found when the suite is written.
class DefaultsWatch {
public:
    /// To be repeated after the folder may have been made anew.
    static void begin(std::string const& folder, std::string const& name, WeakRef<DefaultsSuite> suite);
};

} // namespace Tessarin::defaults
