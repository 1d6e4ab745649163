#pragma once

#include <atomic>

namespace Ombry::Platform {

/// The production implementation of a group of operations; each platform folder defines one for every group
/// but `IInspection`, which the doctor alone asks, and the group's header declares it, so that nobody's use
/// of it comes before.
template <class Group>
Group& Production();

namespace Detail {
template <class Group>
inline std::atomic<Group*> replacement{nullptr};
}

/// The group in force: the production implementation unless a test replaced it. Any thread may call it.
template <class Group>
Group& Current() {
    if (Group* replaced = Detail::replacement<Group>.load(std::memory_order_acquire)) return *replaced;
    return Production<Group>();
}

/// Puts `group` in the place of the current implementation for the life of this object. Not owned; it must
/// outlive this object. Scopes nest. To be used before any thread starts that might ask for the group: by
/// tests, and by a program that narrows what the libraries under it may do.
template <class Group>
class Replace {
public:
    explicit Replace(Group& group) : previous(Detail::replacement<Group>.exchange(&group)) {}
    ~Replace() { Detail::replacement<Group>.store(previous, std::memory_order_release); }
    Replace(const Replace&) = delete;
    Replace& operator=(const Replace&) = delete;

private:
    Group* previous;
};

namespace Testing {
using Platform::Replace;
}

}  // namespace Ombry::Platform
