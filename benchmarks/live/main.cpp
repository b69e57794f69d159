// What stands between a store and a window.
#include "benchmarks/live/Groups.h"

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    Report report(argc, argv);
    benchTypedAccess(report);
    benchLiveLists(report);
    benchAsynchronousFetch(report);
    benchUndoing(report);
    return report.finish();
}
