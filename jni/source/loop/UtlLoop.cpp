#include "UtlLoop.h"

#include <new>

#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "loop/UtlLoopTasks.h"
#include "loop/UtlLoopThread.h"
#include "messaging/UtlMsgLoop.h"

namespace utl {

namespace {

void doNothing(void*) {}

}  // namespace

bool LoopThread::begin(LoopOptions const& options) {
    ThreadMsgListener* const listener =
        options.listener != nullptr ? options.listener : mTasks.handlers();
    StartOptions asGiven;
    asGiven.priority = options.priority;
    asGiven.aliveTime = options.aliveTime;
    asGiven.watchdogListener = options.watchdogListener;
    return start(listener, asGiven) == REACHED && call(doNothing, nullptr);
}

bool LoopThread::call(void (*function)(void* context), void* context) {
    return isServing() && mLoop->call(function, context);
}

// The circle that the one may find makes the other wait for ever, but not without a word.
void LoopThread::end() {
    stop(Rest::DROP);
    Thread::stop(1, 0);
}

int LoopThread::requestStop() {
    mLoop->closeIfOpen();
    return MsgDrivenThread::requestStop();
}

std::unique_ptr<Loop> Loop::make(LoopOptions const& options) {
    std::unique_ptr<LoopTasks, ExtensionRelease> const tasks(new (std::nothrow) LoopTasks(
        options.maxTaskCount, options.maxTimerCount, options.maxDescriptorCount));
    if (tasks == nullptr || !tasks->isWhole()) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "Loop(%s) has no memory", options.name);
        return nullptr;
    }
    std::unique_ptr<LoopThread> thread(new (std::nothrow) LoopThread(options, *tasks));
    if (thread == nullptr || !thread->begin(options)) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "Loop(%s) cannot begin", options.name);
        return nullptr;
    }
    MsgHandlers* const handlers = options.listener == nullptr ? tasks->handlers() : nullptr;
    std::unique_ptr<Loop> loop(new (std::nothrow) Loop(std::move(thread), *tasks, handlers));
    if (loop == nullptr) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "Loop(%s) has no memory", options.name);
    }
    return loop;
}

// Here already: tasks may use this until the thread has ended.
Loop::~Loop() {
    loopThread().end();
}

LoopThread& Loop::loopThread() {
    return static_cast<LoopThread&>(*mThread);
}

bool Loop::postTask(TaskType const& type, void* callable) {
    return mTasks.post(type, callable);
}

bool Loop::callFunction(void (*function)(void* context), void* context) {
    return loopThread().call(function, context);
}

TaskHandle Loop::delayTask(TaskType const& type, void* callable, std::int64_t delay,
                           std::int64_t period) {
    return mTasks.delay(type, callable, delay, period);
}

TaskHandle Loop::watchTask(TaskType const& type, void* callable, int descriptor, unsigned events) {
    return mTasks.watch(type, callable, descriptor, events);
}

TaskHandle::TaskHandle(LoopTasks& tasks, std::uint32_t place, std::uint32_t generation)
    : mTasks(&tasks), mPlace(place), mGeneration(generation) {
    mTasks->retain();
}

TaskHandle::~TaskHandle() {
    if (mTasks != nullptr) {
        mTasks->release();
    }
}

TaskHandle::TaskHandle(TaskHandle const& other)
    : mTasks(other.mTasks), mPlace(other.mPlace), mGeneration(other.mGeneration) {
    if (mTasks != nullptr) {
        mTasks->retain();
    }
}

TaskHandle::TaskHandle(TaskHandle&& other) noexcept
    : mTasks(std::exchange(other.mTasks, nullptr)),
      mPlace(other.mPlace),
      mGeneration(other.mGeneration) {}

TaskHandle& TaskHandle::operator=(TaskHandle other) noexcept {
    std::swap(mTasks, other.mTasks);
    mPlace = other.mPlace;
    mGeneration = other.mGeneration;
    return *this;
}

bool TaskHandle::cancel() const {
    return mTasks != nullptr && mTasks->cancel(mPlace, mGeneration);
}

}  // namespace utl
