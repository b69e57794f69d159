// The hand-written side: one connection, prepared statements, no library between them and SQLite.
#include "benchmarks/store/RawDatabase.h"
#include "benchmarks/store/SQLContender.h"

namespace Tessarin::benchmarks {
namespace {

class Raw : public SQLContender<RawDatabase> {
public:
    std::string name() const override { return "raw SQLite"; }
};

} // namespace

std::unique_ptr<Contender> makeRaw() { return std::make_unique<Raw>(); }

} // namespace Tessarin::benchmarks
