// Periodic tasks.
#include "morva/periodic.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/dynamic_controls.h"
#include "morva/tbl.h"

namespace morva::process {
namespace {

struct Task {
    char* name;
    double interval;
    pthread_t thread;
    int* quit;
    int32_t stop;
    int (*function)(void*);
    void* private_data;
    int32_t control;
};

// All tasks that ever were, by index; stopped ones keep theirs.
struct Tasks {
    std::mutex lock;
    std::condition_variable stopped;
    Tbl* list = nullptr;
};

// Never destroyed: threads may outlive the main one.
Tasks& tasks() {
    static Tasks& all = *new (must_malloc(sizeof(Tasks), "tasks", MORVA_HERE)) Tasks;
    return all;
}

bool is_set(int* flag) {
    return flag != nullptr && std::atomic_ref<int>(*flag).load() != 0;
}

bool is_traced(const Task& task) {
    return task.control >= 0 && (dcgetb(task.control) & 1) != 0;
}

// Sleeps until the next call, or until the task is stopped.
void sleep_between(Task& task) {
    constexpr double kLongest = 1e9;
    const double seconds = task.interval > 0 ? std::min(task.interval, kLongest) : 0;
    std::unique_lock<std::mutex> lock(tasks().lock);
    tasks().stopped.wait_for(lock, std::chrono::duration<double>(seconds),
                             [&] { return is_set(&task.stop); });
}

void tell_why(Task& task, int result) {
    if (is_set(task.quit)) {
        elog_notify(0, "Task %s quits because of global quit flag", task.name);
    } else if (is_set(&task.stop)) {
        elog_notify(0, "Task %s quits because of task quit flag", task.name);
    } else if (result != 0) {
        elog_notify(0, "Task %s quits because of return code = %d", task.name, result);
    } else {
        elog_complain(0, "I don't know why we're quitting!");
    }
}

void* run(void* argument) {
    Task& task = *static_cast<Task*>(argument);
    elog_notify(0, "Task %s starting", task.name);
    int result = 0;
    while (!is_set(task.quit) && !is_set(&task.stop)) {
        if (is_traced(task)) elog_notify(0, "running %s", task.name);
        result = task.function(task.private_data);
        if (result != 0) break;
        sleep_between(task);
    }
    tell_why(task, result);
    return nullptr;
}

// The index of a task in the list from now on.
int enlist(Task* task) {
    const std::lock_guard<std::mutex> lock(tasks().lock);
    if (tasks().list == nullptr) tasks().list = newtbl(0);
    return static_cast<int>(pushtbl(tasks().list, task));
}

Task* task_of(int index) {
    const std::lock_guard<std::mutex> lock(tasks().lock);
    return static_cast<Task*>(gettbl(tasks().list, index));
}

}  // namespace
}  // namespace morva::process

using namespace morva::process;

int periodically(const char* name, int (*function)(void*), void* private_data, int* quit,
                 double interval) {
    Task* task = morva::must_alloc<Task>(1, "task", MORVA_HERE);
    *task = {morva::must_strdup(name, "task", MORVA_HERE),
             interval,
             {},
             quit,
             0,
             function,
             private_data,
             dcsetupbyt(name, 0)};
    if (task->control >= 0) dcsetb(task->control, 0);
    pthread_t thread;
    const int error = ::pthread_create(&thread, nullptr, run, task);
    if (error != 0) {
        errno = error;
        elog_log(1, "failed to create periodic thread %s", name);
        std::free(task->name);
        std::free(task);
        return -1;
    }
    task->thread = thread;
    if (::pthread_detach(thread) != 0)
        elog_complain(1, "failed to detach periodically child thread '%s'", name);
    return enlist(task);
}

int pkill(int index) {
    Task* task = task_of(index);
    elog_notify(0, "pkill(%d) finds %s", index, task != nullptr ? task->name : "<no task>");
    if (task == nullptr) return -1;
    elog_notify(0, "Stopping task %s", task->name);
    const std::lock_guard<std::mutex> lock(tasks().lock);
    std::atomic_ref<int32_t>(task->stop).store(1);
    tasks().stopped.notify_all();
    return 0;
}
