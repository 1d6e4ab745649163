#include "ClientCommunications/Impl/KeyLockTable.h"

namespace Ombry::ClientCommunications {

// The entry of a key, made if there is none.
KeyLockTable::KeyLockState& KeyLockTable::StateOf(const std::string& name) {
    if (!spare) return states[name];
    const auto after = states.lower_bound(name);
    if (after != states.end() && after->first == name) return after->second;
    spare.key() = name;
    spare.mapped() = KeyLockState();
    return states.insert(after, std::move(spare))->second;
}

void KeyLockTable::LockRead(const std::string& name) {
    std::unique_lock lock(mutex);
    KeyLockState* state = &StateOf(name);
    while (state->writerState != WriterState::None) {
        condition.wait(lock);
        state = &StateOf(name);
    }
    ++state->readerCount;
}

void KeyLockTable::UnlockRead(const std::string& name) {
    std::lock_guard guard(mutex);
    const auto state = states.find(name);
    if (--state->second.readerCount > 0) return;
    if (state->second.writerState == WriterState::None) spare = states.extract(state);
    condition.notify_all();
}

void KeyLockTable::LockWrite(const std::string& name) {
    std::unique_lock lock(mutex);
    while (true) {
        KeyLockState& state = StateOf(name);
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
    spare = states.extract(name);  // whoever waits for it creates it anew
    condition.notify_all();
}

std::size_t KeyLockTable::Size() const {
    std::lock_guard guard(mutex);
    return states.size();
}

}  // namespace Ombry::ClientCommunications
