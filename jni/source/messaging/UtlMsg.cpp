#include "UtlMsg.h"

#include "foundation/UtlUserCode.h"

namespace utl {

MsgDataBroker::~MsgDataBroker() = default;

int MsgDataBroker::beginInput() {
    return 1;
}

int MsgDataBroker::endInput() {
    return 1;
}

int MsgDataBroker::beginOutput() {
    return 1;
}

int MsgDataBroker::endOutput() {
    return 1;
}

int MsgDataBroker::getResult() {
    return 0;
}

Msg::~Msg() = default;

// The steps' own results do not matter here: a broker remembers a failure until it is asked.
int Msg::storeTo(MsgDataBroker* broker) const {
    if (broker == nullptr) {
        return 0;
    }
    broker->setMsgId(mMsgId);
    broker->beginInput();
    callUserCode("Msg::storeDataTo", "", [this, broker] { storeDataTo(broker); });
    broker->endInput();
    return broker->getResult() == 0;
}

int Msg::restoreFrom(MsgDataBroker& broker) {
    broker.getMsgId(&mMsgId);
    broker.beginOutput();
    callUserCode("Msg::restoreDataFrom", "", [this, &broker] { restoreDataFrom(broker); });
    broker.endOutput();
    return broker.getResult() == 0;
}

void SimpleMsg::storeDataTo(MsgDataBroker*) const {}

void SimpleMsg::restoreDataFrom(MsgDataBroker&) {}

void TimerMsg::storeDataTo(MsgDataBroker* broker) const {
    broker->set(mTimerId);
}

void TimerMsg::restoreDataFrom(MsgDataBroker& broker) {
    broker.get(&mTimerId);
}

}  // namespace utl
