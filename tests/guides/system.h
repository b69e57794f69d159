#include "Tessarin/Tessarin.h"

using namespace Tessarin;
inline void show(std::string_view) {}
inline std::optional<NSData> nextBlock() { return {}; }
inline std::string const project, typed;
inline NSDate const morning;
inline Ref<NSObject> const window;
inline NSData const packet;
