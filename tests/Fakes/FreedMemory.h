#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Ombry::Tests {

/// Looks for a text in every block of memory that this thread frees while the object lives: what a secret
/// must not be left in. One object a thread at a time; an executable that uses it compiles one source that
/// watches.
class FreedMemory {
public:
    /// The thread sanitizer does not tell a block that is freed from one that grows: nothing is seen there.
#if defined(__SANITIZE_THREAD__)
    static constexpr bool Watches = false;
#else
    static constexpr bool Watches = true;
#endif

    explicit FreedMemory(const std::string& secret);
    ~FreedMemory();
    FreedMemory(const FreedMemory&) = delete;
    FreedMemory& operator=(const FreedMemory&) = delete;

    /// Blocks that held the text when they were freed.
    std::size_t BlocksWithTheSecret() const {
        return found;
    }

    /// For the watching source: a block that is about to be freed.
    void Look(std::string_view block);

private:
    const std::string secret;
    std::size_t found = 0;
};

}  // namespace Ombry::Tests
