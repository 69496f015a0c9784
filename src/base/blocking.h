// Calls that may hold the program for a while.
//
// Work that is cheaper in one go (the writes of many disks to one file) is put off as long as there
// is something else to do. It must be done before the program waits: whoever stops the machine or
// the program then would find it missing. Every wait, pause and slow call therefore runs as a
// BlockingCall.
#pragma once

namespace patrol {

// Has every BlockingCall run `routine` before it begins, until there is nothing put off any more
// (null).
void CallBeforeBlocking(void (*routine)());

// Returns whether something has been put off.
bool AnythingPutOff();

// Does what was put off, if anything was. For BlockingCall.
void PrepareToBlock();

// Runs `call`, and what was put off before it. Returns what `call` returns.
template <class Call>
auto BlockingCall(Call call) {
    PrepareToBlock();
    return call();
}

}  // namespace patrol
