// Must not compile, and must say why; tests/CMakeLists.txt tries each case, and the file without one, which must compile.
#include "Tessarin/keyaccess/KVC.h"

struct Good {
    int number;
};
class Closed {
    int number_ = 1;

public:
    int number() const { return number_; }
};
struct Referring {
    int& number;
};

int use(Good const& good, Closed const& closed, Referring const& referring) {
    using namespace Tessarin;
    static_cast<void>(closed), static_cast<void>(referring);
#if defined(NUMBER)
    return *valueForKey<int>(3, "number");
#elif defined(CLOSED)
    return *valueForKeyPath<int>(closed, "number");
#elif defined(HOLDING)
    return *valueForKey<int>(std::make_shared<int>(3), "number");
#elif defined(REFERRING)
    return *valueForKey<int>(referring, "number");
#elif defined(MOVED)
    return **valueForKey<std::unique_ptr<int>>(good, "number");
#else
    return *valueForKey<int>(good, "number");
#endif
}
