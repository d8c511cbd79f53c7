// Threads that keep all of the library busy: each of its locks is held again and again.

#ifndef UTL_TESTS_SUPPORT_CROWD_H
#define UTL_TESTS_SUPPORT_CROWD_H

#include <functional>
#include <list>
#include <string>

#include "UtlLog.h"
#include "UtlMemory.h"
#include "UtlString.h"
#include "UtlTimepiece.h"

#include "support/MessageStation.h"
#include "support/Worker.h"

namespace test {

class Crowd {
public:
    static constexpr long MSG_ID = 0x8002;
    static constexpr unsigned long LONG_ALIVE = 60000;

    // What each of them does besides, by its number.
    explicit Crowd(std::function<void(int number)> const& also = [](int) {}) {
        station.on(MSG_ID, [] { applog(1, 2, "received"); });
        station.start(1);
        for (int number = 0; number < 4; ++number) {
            Worker& worker = workers.emplace_back("busy");
            worker.onExecute = [this, &worker, also, number] {
                for (worker.startWatchdog(); !worker.hasRequestedStop(); also(number)) {
                    useTheLibrary(number);
                }
                return 0;
            };
            worker.startRegistered(LONG_ALIVE, nullptr);
        }
        station.waitFor(MSG_ID, 10);
    }

    Station station{32};
    std::list<Worker> workers;

private:
    void useTheLibrary(int number) {
        utl::compareStrNoCase("one text", "ONE TEXT", utl::ALL);
        utl::Time time;
        utl::getLocalTime(&time);
        utl::TimeCounter::start(static_cast<unsigned long>(number));
        applog(1, 2, "busy at %d", time.second());
        station->postMsg(MSG_ID);
        station->sendMsgAsync(utl::SimpleMsg(MSG_ID));
        station->hasMsg(MSG_ID);
        utl::Memory::get()->mark();
        utl::Thread::sleep(0);
    }
};

}  // namespace test

#endif  // UTL_TESTS_SUPPORT_CROWD_H
