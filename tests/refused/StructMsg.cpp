#include <string>

#include "UtlMsgHandlers.h"

namespace utl {

struct Big {
    char bytes[65537];
};

struct Unborn {
    explicit Unborn(int) {}
};

using ReadingMsg = StructMsg<0x8401, int>;
using DoubleMsg = StructMsg<0x8402, int, double>;

void refuse(MsgDrivenThread& thread, MsgHandlers& handlers) {
    StructMsg<0x7FFF, int>();                            // refused: The id of a StructMsg is
    StructMsg<0x83FF, int>();                            // refused: which the library needs itself
    StructMsg<0x8400, std::string>();                    // refused: has to be trivially copyable
    StructMsg<0x8401, char[2]>();                        // refused: read into a default-constructed
    sizeof(StructMsg<0x8402, Unborn>);                   // refused: an array goes into a struct
    StructMsg<0x8402, Big>();                            // refused: has at most 65536 bytes
    thread.ask<ReadingMsg>(1);                           // refused: name its answer
    handlers.on<ReadingMsg>([](std::string const&) {});  // refused: is called with the value of
    handlers.on<ReadingMsg>([](int) { return 1; });      // refused: nothing when that names none
    handlers.on<DoubleMsg>([](int) {});                  // refused: the answer that its message
    handlers.onOther([](int) {});                        // refused: is called with the record
}

}  // namespace utl
