#pragma once
#include "Tessarin/platform/runtime/NSObject.h"

namespace Catalogue {

/// How far the import is: a bar on a terminal, a line for each tenth anywhere else. Told from any thread; draws on the
/// main queue, as a user interface would.
class Progress : public Tessarin::NSObject {
public:
    void begin(std::size_t total);
    void advanceTo(std::size_t done);

    void init() override;

protected:
    Progress() = default;

private:
    template <class T> friend struct Tessarin::detail::Made;
    void draw(std::size_t done);

    bool isTerminal_ = false;   // constant after init
    std::size_t total_ = 0;     // the rest is the main queue's
    std::size_t lastTenth_ = 0;
};

} // namespace Catalogue
