// A Loop beside the loops of others: lambdas that are posted as fast as they are run, round trips
// of a call, many delayed tasks, and a socket that is echoed.

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#ifdef UTL_BENCH_GLIB
#include <glib-unix.h>
#endif

#include "Loops.h"
#include "UtlLog.h"
#include "UtlLoop.h"

namespace {

using namespace bench;

constexpr unsigned long DELAYED = 10000;
constexpr int MOST_DELAY_MS = 5;

// Of the i-th delayed task: in no order.
int delayOf(unsigned long i) {
    return static_cast<int>(i * 7919 % MOST_DELAY_MS);
}

// Counts the tasks that have run.
class Runs {
public:
    void add() {
        if (++mCount == DELAYED) {
            mAll.set_value();
        }
    }
    void await() { mAll.get_future().wait(); }

private:
    unsigned long mCount = 0;
    std::promise<void> mAll;
};

struct Echo {
    Echo() {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
            std::abort();
        }
    }
    ~Echo() {
        ::close(ends[0]);
        ::close(ends[1]);
    }

    // What the loop does, and who waits for it.
    void answer() {
        char bytes[64];
        ssize_t const size = ::read(ends[0], bytes, sizeof bytes);
        if (size <= 0 || ::write(ends[0], bytes, static_cast<std::size_t>(size)) != size) {
            std::abort();
        }
    }
    void ask() {
        char bytes[64] = {};
        if (::write(ends[1], bytes, sizeof bytes) != sizeof bytes ||
            ::read(ends[1], bytes, sizeof bytes) != sizeof bytes) {
            std::abort();
        }
    }
    int ends[2];
};

// ---- the library

class UtlLoop : public Handler {
public:
    static constexpr char const* NAME = "utl";
    using Sender = PayloadSender<UtlLoop>;

    UtlLoop() {
        utl::LoopOptions options;
        options.maxTaskCount = ROOM;
        options.maxTimerCount = DELAYED;
        mLoop = utl::Loop::make(options);
    }

    // With what a task has room for beside the pointer.
    bool post(Payload const& payload) {
        struct Content {
            unsigned char bytes[utl::MAX_TASK_BYTES - sizeof(void*)];
        } content;
        std::memcpy(content.bytes, payload.bytes.data(), sizeof content.bytes);
        return mLoop->post([this, content] {
            benchmark::DoNotOptimize(content);
            handle(mNone);
        });
    }
    void send(Payload const& payload) {
        mLoop->call([&] { handle(payload); });
    }
    void delayMany(Runs& runs) {
        mLoop->call([&] {
            for (unsigned long i = 0; i < DELAYED; ++i) {
                mLoop->postAfter(std::chrono::milliseconds(delayOf(i)), [&runs] { runs.add(); });
            }
        });
    }
    void echo(Echo& echo) {
        mWatch = mLoop->watch(echo.ends[0], utl::Loop::READABLE, [&echo] { echo.answer(); });
    }

private:
    Payload const mNone;
    std::unique_ptr<utl::Loop> mLoop;
    utl::ScopedTask mWatch;
};

#ifdef UTL_BENCH_UV
class UvLoop {
public:
    static constexpr char const* NAME = "libuv";

    UvLoop() : mTimers(DELAYED) {
        uv_loop_init(&mLoop);
        uv_async_init(&mLoop, &mWake, [](uv_async_t* wake) {
            auto& self = *static_cast<UvLoop*>(wake->data);
            if (self.mFunction) {
                std::function<void()> const function = std::move(self.mFunction);
                self.mFunction = nullptr;
                function();
            }
        });
        mWake.data = this;
        for (uv_timer_t& timer : mTimers) {
            uv_timer_init(&mLoop, &timer);
        }
        mThread = std::thread([this] { uv_run(&mLoop, UV_RUN_DEFAULT); });
    }
    ~UvLoop() {
        run([this] {
            uv_walk(
                &mLoop, [](uv_handle_t* handle, void*) { uv_close(handle, nullptr); }, nullptr);
        });
        mThread.join();
        uv_loop_close(&mLoop);
    }

    void delayMany(Runs& runs) {
        run([this, &runs] {
            for (unsigned long i = 0; i < DELAYED; ++i) {
                mTimers[i].data = &runs;
                uv_timer_start(
                    &mTimers[i], [](uv_timer_t* timer) { static_cast<Runs*>(timer->data)->add(); },
                    static_cast<std::uint64_t>(delayOf(i)), 0);
            }
        });
    }
    void echo(Echo& echo) {
        run([this, &echo] {
            uv_poll_init(&mLoop, &mPoll, echo.ends[0]);
            mPoll.data = &echo;
            uv_poll_start(&mPoll, UV_READABLE, [](uv_poll_t* poll, int, int) {
                static_cast<Echo*>(poll->data)->answer();
            });
        });
    }

private:
    void run(std::function<void()> function) {
        mFunction = std::move(function);
        uv_async_send(&mWake);
    }

    uv_loop_t mLoop;
    uv_async_t mWake;
    uv_poll_t mPoll;
    std::vector<uv_timer_t> mTimers;
    std::function<void()> mFunction;
    std::thread mThread;
};
#endif

#ifdef UTL_BENCH_BOOST
class AsioLoop {
public:
    static constexpr char const* NAME = "asio";

    AsioLoop() {
        for (unsigned long i = 0; i < DELAYED; ++i) {
            mTimers.emplace_back(mContext);
        }
    }
    ~AsioLoop() {
        mContext.stop();
        mThread.join();
        if (mDescriptor != nullptr) {
            mDescriptor->release();
        }
    }

    void delayMany(Runs& runs) {
        boost::asio::post(mContext, [this, &runs] {
            for (unsigned long i = 0; i < DELAYED; ++i) {
                mTimers[i].expires_after(std::chrono::milliseconds(delayOf(i)));
                mTimers[i].async_wait([&runs](boost::system::error_code const&) { runs.add(); });
            }
        });
    }
    void echo(Echo& echo) {
        mDescriptor = std::make_unique<Descriptor>(mContext, echo.ends[0]);
        waitFor(echo);
    }

private:
    using Descriptor = boost::asio::posix::stream_descriptor;

    void waitFor(Echo& echo) {
        mDescriptor->async_wait(Descriptor::wait_read,
                                [this, &echo](boost::system::error_code const& error) {
                                    if (!error) {
                                        echo.answer();
                                        waitFor(echo);
                                    }
                                });
    }

    boost::asio::io_context mContext;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> mWork{
        mContext.get_executor()};
    std::vector<boost::asio::steady_timer> mTimers;
    std::unique_ptr<Descriptor> mDescriptor;
    std::thread mThread{[this] { mContext.run(); }};
};
#endif

#ifdef UTL_BENCH_GLIB
class GlibLoop : public Glib {
public:
    ~GlibLoop() {
        if (mWatch != nullptr) {
            g_source_destroy(mWatch);
            g_source_unref(mWatch);
        }
    }

    // From outside, which GLib allows.
    void delayMany(Runs& runs) {
        for (unsigned long i = 0; i < DELAYED; ++i) {
            GSource* const source = g_timeout_source_new(static_cast<guint>(delayOf(i)));
            g_source_set_callback(
                source,
                [](gpointer all) {
                    static_cast<Runs*>(all)->add();
                    return G_SOURCE_REMOVE;
                },
                &runs, nullptr);
            g_source_attach(source, context());
            g_source_unref(source);
        }
    }
    void echo(Echo& echo) {
        mWatch = g_unix_fd_source_new(echo.ends[0], G_IO_IN);
        GUnixFDSourceFunc const answer = [](gint, GIOCondition, gpointer echoed) -> gboolean {
            static_cast<Echo*>(echoed)->answer();
            return G_SOURCE_CONTINUE;
        };
        g_source_set_callback(mWatch, G_SOURCE_FUNC(answer), &echo, nullptr);
        g_source_attach(mWatch, context());
    }

private:
    GSource* mWatch = nullptr;
};
#endif

// ---- the rows

std::int64_t processTime() {
    timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return time.tv_sec * std::int64_t{1000000000} + time.tv_nsec;
}

// The processor time for all of them.
template <typename Loop>
void delayMany(benchmark::State& state) {
    Loop loop;
    for (auto _ : state) {
        Runs runs;
        std::int64_t const begin = processTime();
        loop.delayMany(runs);
        runs.await();
        state.SetIterationTime(static_cast<double>(processTime() - begin) / 1e9);
    }
}

template <typename Loop>
void echo(benchmark::State& state, bool isTogether) {
    Echo echo;
    Loop loop;
    loop.echo(echo);
    latency(state, isTogether, [&] {
        std::int64_t const begin = now();
        echo.ask();
        return now() - begin;
    });
}

std::string row(char const* name, char const* contender) {
    return std::string("loop/") + name + "/" + contender;
}

template <typename Loop>
void registerPosting() {
    for (long const senders : {1, 4}) {
        std::string const name =
            "post lambda, " + std::to_string(senders) + (senders == 1 ? " sender" : " senders");
        benchmark::RegisterBenchmark(row(name.c_str(), Loop::NAME).c_str(), post<Loop>, senders)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    }
}

template <typename Loop>
void registerCall() {
    registerLatency("loop/call round trip", Loop::NAME, roundTrip<Loop>);
}

template <typename Loop>
void registerOthers() {
    benchmark::RegisterBenchmark(row("10000 delayed posts", Loop::NAME).c_str(), delayMany<Loop>)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    registerLatency("loop/echo through watch", Loop::NAME, echo<Loop>);
}

}  // namespace

int main(int argc, char** argv) {
    setAllFilterLevel(0);
    registerPosting<UtlLoop>();
    registerCall<UtlLoop>();
    registerCall<Pipe>();
    registerOthers<UtlLoop>();
#ifdef UTL_BENCH_UV
    registerPosting<Uv>();
    registerCall<Uv>();
    registerOthers<UvLoop>();
#endif
#ifdef UTL_BENCH_BOOST
    registerPosting<Asio>();
    registerCall<Asio>();
    registerOthers<AsioLoop>();
#endif
#ifdef UTL_BENCH_GLIB
    registerPosting<Glib>();
    registerCall<Glib>();
    registerOthers<GlibLoop>();
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
