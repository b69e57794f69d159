#include "benchmarks/system/Groups.h"

#ifdef TESSARIN_HAS_QTCORE
#include <QCoreApplication>
#include <QProcess>
#include <cstdlib>

namespace Tessarin::benchmarks {
namespace {

void run(char const* program, int count) {
    static int argumentCount = 1;
    static char name[] = "bench";
    static char* arguments[] = {name, nullptr};
    static QCoreApplication const application(argumentCount, arguments);
    for (int i = 0; i < count; ++i) {
        QProcess process;
        process.setStandardInputFile(QProcess::nullDevice());
        process.start(program, {});
        if (!process.waitForFinished() || process.exitCode() != 0) std::abort();
        auto output = process.readAllStandardOutput(), errors = process.readAllStandardError();
        touch(output), touch(errors);
    }
}

} // namespace
RunMany qtPeer() { return &run; }
} // namespace Tessarin::benchmarks
#else
Tessarin::benchmarks::RunMany Tessarin::benchmarks::qtPeer() { return nullptr; }
#endif
