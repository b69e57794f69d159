// The hand-written side: one connection, prepared statements, no library between them and SQLite.
#include "benchmarks/store/RawDatabase.h"
#include "benchmarks/store/SQLContender.h"

namespace Tessarin::benchmarks {
std::unique_ptr<Contender> makeRaw() { return std::make_unique<SQLContender<RawDatabase>>("raw"); }

} // namespace Tessarin::benchmarks
