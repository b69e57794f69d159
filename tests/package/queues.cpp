// A program that wants queues and nothing else.
#include <Tessarin/dispatch/Dispatcher.h>
#include <cstdio>

int main() {
    auto const queue = Tessarin::make<Tessarin::Dispatcher>(Tessarin::QueueOptions{.identifier = "work"});
    int sum = 0;
    for (int value = 0; value < 10; ++value) queue->async([&sum, value] { sum += value; });
    queue->sync([] {});
    std::printf("%d\n", sum);
    return sum == 45 ? 0 : 1;
}
