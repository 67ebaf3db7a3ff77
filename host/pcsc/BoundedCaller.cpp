#include "host/pcsc/BoundedCaller.hpp"

#include <condition_variable>
#include <mutex>
#include <unistd.h>

namespace host {

struct BoundedCaller::Helper {
    std::mutex mutex;
    std::condition_variable wake;     // a task, or the end, for the helper
    std::condition_variable finished; // the task's end, for the caller
    std::function<void()> task;
    std::function<void()> late;
    bool done = false;
    bool abandoned = false;
    bool ending = false;

    void serve() {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            wake.wait(lock, [this] { return task || ending; });
            if (!task) {
                return;
            }
            const std::function<void()> current = std::move(task);
            task = nullptr;
            lock.unlock();
            current();
            lock.lock();
            if (abandoned) {
                lock.unlock();
                late();
                return;
            }
            done = true;
            finished.notify_one();
        }
    }
};

BoundedCaller::~BoundedCaller() {
    if (!helper_) {
        return;
    }
    if (owner_ != getpid()) {
        abandon();
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(helper_->mutex);
        helper_->ending = true;
    }
    helper_->wake.notify_one();
    thread_.join();
}

void BoundedCaller::start() {
    if (helper_ && owner_ != getpid()) {
        abandon(); // the helper was the parent's: this process has none
    }
    if (!helper_) {
        helper_ = std::make_shared<Helper>();
        thread_ = std::thread([helper = helper_] { helper->serve(); });
        owner_ = getpid();
    }
}

void BoundedCaller::abandon() {
    thread_.detach();
    if (owner_ != getpid()) {
        // A helper of the parent may have held its lock or waited on its
        // condition at the fork: destroying them could block for ever.
        new std::shared_ptr<Helper>(std::move(helper_));
    }
    helper_.reset();
}

bool BoundedCaller::run(std::chrono::milliseconds limit, std::function<void()> task,
                        std::function<void()> late) {
    start();
    Helper& helper = *helper_;
    std::unique_lock<std::mutex> lock(helper.mutex);
    helper.task = std::move(task);
    helper.late = std::move(late);
    helper.done = false;
    helper.wake.notify_one();
    if (helper.finished.wait_for(lock, limit, [&] { return helper.done; })) {
        return true;
    }
    helper.abandoned = true;
    lock.unlock();
    abandon();
    return false;
}

} // namespace host
