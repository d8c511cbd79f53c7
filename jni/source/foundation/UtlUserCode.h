// Internal. The boundary to what the library's users wrote.
//
//     callUserCode("ThreadMsgListener::receiveMsg", name, [&] { listener->receiveMsg(id, msg); });
//
// User code is called with a loop to go on, a lock to give back, or threads waiting. So it has to
// return: what throws, ends its thread with pthread_exit(), or is cancelled in such a call ends the
// process here, with a line in the log that names the call, rather than leaving others waiting for
// ever.

#ifndef UTL_USER_CODE_H
#define UTL_USER_CODE_H

namespace utl {

// What is called, and of which object, for the log: strings that live as long as the call.
struct UserCall {
    char const* call;
    char const* name;
};

// Calls `code` with `context`.
void runUserCode(UserCall const& call, void (*code)(void* context), void* context);

template <typename Code>
void callUserCode(char const* call, char const* name, Code code) {
    runUserCode(
        {call, name}, [](void* context) { (*static_cast<Code*>(context))(); }, &code);
}

}  // namespace utl

#endif  // UTL_USER_CODE_H
