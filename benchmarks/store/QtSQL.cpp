#include "benchmarks/store/Contender.h"
namespace Tessarin::benchmarks {
std::unique_ptr<Contender> makeQtSQL() { return nullptr; }
} // namespace Tessarin::benchmarks
