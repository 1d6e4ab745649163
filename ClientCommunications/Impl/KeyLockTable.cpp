#include "ClientCommunications/Impl/KeyLockTable.h"

namespace Ombry::ClientCommunications {

void KeyLockTable::LockRead(const std::string& name) {
    std::unique_lock lock(mutex);
    KeyLockState* state = &states[name];
    while (state->writerState != WriterState::None) {
        condition.wait(lock);
        state = &states[name];
    }
    ++state->readerCount;
}

void KeyLockTable::UnlockRead(const std::string& name) {
    std::lock_guard guard(mutex);
    const auto state = states.find(name);
    if (--state->second.readerCount > 0) return;
    if (state->second.writerState == WriterState::None) states.erase(state);
    condition.notify_all();
}

void KeyLockTable::LockWrite(const std::string& name) {
    std::unique_lock lock(mutex);
    while (true) {
        KeyLockState& state = states[name];
        if (state.writerState != WriterState::Holding) {
            if (state.readerCount == 0) {
                state.writerState = WriterState::Holding;
                return;
            }
            state.writerState = WriterState::Waiting;  // new readers hold off
        }
        condition.wait(lock);
    }
}

void KeyLockTable::UnlockWrite(const std::string& name) {
    std::lock_guard guard(mutex);
    states.erase(name);  // whoever waits for it creates it anew
    condition.notify_all();
}

std::size_t KeyLockTable::Size() const {
    std::lock_guard guard(mutex);
    return states.size();
}

}  // namespace Ombry::ClientCommunications
