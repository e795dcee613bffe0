#include "Worker.h"

#include <pthread.h>
#include <signal.h>

#include <chrono>
#include <utility>

namespace simbus {

void Worker::start(std::function<void()> body) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::packaged_task<void()> task(std::move(body));
    ended_ = task.get_future();
    thread_ = std::thread(std::move(task));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Worker::finish() {
    if (!thread_.joinable()) {
        return;
    }
    const bool self = thread_.get_id() == std::this_thread::get_id();
    if (!self && ended_.wait_for(std::chrono::seconds(1)) == std::future_status::ready) {
        thread_.join();
    } else {
        thread_.detach();
    }
}

}  // namespace simbus
