#include "benchmarks/store/Contender.h"
namespace Tessarin::benchmarks {
std::unique_ptr<Contender> makeSQLiteCpp() { return nullptr; }
} // namespace Tessarin::benchmarks
