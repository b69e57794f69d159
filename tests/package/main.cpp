// A desktop application's view of the installed library: toolkits define these words as macros.
#define emit
#define slots
#define signals public
#define foreach(item, list) for (item : list)

#include <Tessarin/Tessarin.h>
#include <cstdio>

int main() {
    int sum = 0;
    Tessarin::Closure<void(int)> const add = [&sum](int value) { sum += value; };
    add(42);
    std::printf("Tessarin %s: %d\n", TESSARIN_VERSION, sum);
}
