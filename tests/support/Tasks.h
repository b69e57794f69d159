#pragma once
#include "Tessarin/dispatch/Task.h"
#include <future>

namespace Tessarin::tests {

/// Starts the task and waits, here and now, for its end.
template <class T> TaskOutcome<T> endOf(Task<T>& task) {
    std::promise<TaskOutcome<T>> end;
    task.start([&](TaskOutcome<T> outcome) { end.set_value(std::move(outcome)); });
    return end.get_future().get();
}
template <class T> TaskOutcome<T> endOf(Task<T>&& task) { return endOf(task); }

} // namespace Tessarin::tests
