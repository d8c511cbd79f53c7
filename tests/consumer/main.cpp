#include <cstdio>

#include "Utl.h"

constexpr long ADD = 0x8400;

// A request: it writes its fields to cross threads, and reads them back in the same order.
struct AddMsg : utl::Msg {
    explicit AddMsg(int number = 0) : Msg(ADD), addend(number) {}
    void storeDataTo(utl::MsgDataBroker* broker) const override { broker->set(addend); }
    void restoreDataFrom(utl::MsgDataBroker& broker) override { broker.get(&addend); }

    int addend;
};

// Called on the thread, with one message after the other.
struct Adder : utl::ThreadMsgListener {
    int receiveMsg(int, utl::ThreadRawMsg& msg) override {
        AddMsg request;
        if (request.restoreFrom(msg) && request.getMsgId() == ADD) {
            sum += request.addend;
        }
        return 0;
    }

    int sum = 0;
};

int main() {
    Adder adder;
    utl::MsgDrivenThread thread(16, 10, "adder", 0);  // ten messages of up to 16 bytes, no timers
    if (thread.start(&adder, {}) != 0) {
        return 1;
    }
    for (int number = 1; number <= 3; ++number) {
        if (!thread.sendMsgSync(AddMsg(number))) {  // back when the listener is
            return 1;
        }
        std::printf("the sum is %d\n", adder.sum);  // the reply
    }
    thread.stop(1, 0);  // and wait for its end, without limit
    return adder.sum == 6 ? 0 : 1;
}
