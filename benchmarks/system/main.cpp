// The system helpers beside what toolkits and loops by hand cost, in processor time.
#include "benchmarks/system/Groups.h"

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    Report report(argc, argv);
    benchHexadecimal(report);
    benchSubprocesses(report);
    benchTimers(report);
    return report.finish();
}
