// Stand-in run loops: one per thread, with event sources that other threads signal.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "Objects.h"

namespace sim {

namespace {

/// Guards the sources and loops of all threads; there is little contention.
std::mutex g_loopsMutex;

struct Loop;

struct Source final : Object {
    explicit Source(std::function<void()> action) : Object(Kind::runLoopSource), perform(std::move(action)) {}
    const std::function<void()> perform;
    bool signalled = false;
    Loop* loop = nullptr;
};

struct Loop final : Object {
    Loop() : Object(Kind::runLoop, true) {}

    CFRunLoopRunResult run(std::chrono::duration<double> period, bool returnAfterSource) {
        const auto end = std::chrono::steady_clock::now() + period;
        std::unique_lock lock(g_loopsMutex);
        stopped = false;
        while (!sources.empty()) {
            Source* ready = nextSignalled();
            if (ready != nullptr) {
                ready->signalled = false;
                lock.unlock();
                ready->perform();
                lock.lock();
                if (returnAfterSource) {
                    return kCFRunLoopRunHandledSource;
                }
            } else if (stopped) {
                return kCFRunLoopRunStopped;
            } else if (std::chrono::steady_clock::now() >= end) {
                return kCFRunLoopRunTimedOut;
            } else {
                wakeUp.wait_until(lock, end);
            }
        }
        return kCFRunLoopRunFinished;
    }

    Source* nextSignalled() {
        const auto found =
            std::find_if(sources.begin(), sources.end(), [](const Source* each) { return each->signalled; });
        return found == sources.end() ? nullptr : *found;
    }

    std::vector<Source*> sources;
    std::condition_variable wakeUp;
    bool stopped = false;
};

Loop* loopOf(CFRunLoopRef reference) {
    return static_cast<Loop*>(objectOf(reference));
}
Source* sourceOf(CFRunLoopSourceRef reference) {
    return static_cast<Source*>(objectOf(reference));
}

}  // namespace

CFRunLoopSourceRef createSource(std::function<void()> perform) {
    return referenceTo<CFRunLoopSourceRef>(new Source(std::move(perform)));
}

void signalSource(CFRunLoopSourceRef reference) {
    const std::lock_guard lock(g_loopsMutex);
    Source* source = sourceOf(reference);
    source->signalled = true;
    if (source->loop != nullptr) {
        source->loop->wakeUp.notify_all();
    }
}

}  // namespace sim

extern "C" {

const CFRunLoopMode kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");

CFRunLoopRef CFRunLoopGetCurrent() {
    thread_local sim::Loop loop;
    return sim::referenceTo<CFRunLoopRef>(&loop);
}

void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode) {
    CFRetain(source);
    const std::lock_guard lock(sim::g_loopsMutex);
    sim::sourceOf(source)->loop = sim::loopOf(loop);
    sim::loopOf(loop)->sources.push_back(sim::sourceOf(source));
}

void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode) {
    {
        const std::lock_guard lock(sim::g_loopsMutex);
        auto& sources = sim::loopOf(loop)->sources;
        const auto found = std::find(sources.begin(), sources.end(), sim::sourceOf(source));
        if (found == sources.end()) {
            return;
        }
        sources.erase(found);
        sim::sourceOf(source)->loop = nullptr;
    }
    CFRelease(source);
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled) {
    SIM_CALL_POINT(__func__);
    if (fault) {
        return *fault;
    }
    return sim::loopOf(CFRunLoopGetCurrent())
        ->run(std::chrono::duration<double>(seconds), returnAfterSourceHandled != 0);
}

/// Deliberate: stopping an idle loop does not stop its next run.
void CFRunLoopStop(CFRunLoopRef loop) {
    SIM_CALL_POINT(__func__);
    static_cast<void>(fault);
    const std::lock_guard lock(sim::g_loopsMutex);
    sim::loopOf(loop)->stopped = true;
    sim::loopOf(loop)->wakeUp.notify_all();
}

}  // extern "C"
