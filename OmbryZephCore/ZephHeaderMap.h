#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace OmbryZephCore {

/// The headers of one message, in the order of their names (plain byte order), each name once. `Clear` keeps
/// the texts' memory for the next message, so that a client which sends the like again allocates nothing. Not
/// thread-safe.
class ZephHeaderMap {
public:
    struct Header {
        std::string name;
        std::string value;
    };

    /// Adds a header, or replaces the value of the one of exactly that name. Cheapest in the order of names.
    void Set(std::string_view name, std::string_view value) {
        const auto at = Find(name);
        if (at != End() && at->name == name) {
            at->value = value;
            return;
        }
        const auto index = at - m_Slots.begin();
        if (m_Count == m_Slots.size()) m_Slots.emplace_back();
        Header& fresh = m_Slots[m_Count];
        fresh.name = name;
        fresh.value = value;
        const auto last = End();
        ++m_Count;
        std::rotate(m_Slots.begin() + index, last, last + 1);
    }

    void Clear() { m_Count = 0; }
    std::size_t Count() const { return m_Count; }

    const Header* begin() const { return m_Slots.data(); }
    const Header* end() const { return m_Slots.data() + m_Count; }

private:
    using Slots = std::vector<Header>;

    Slots::iterator End() { return m_Slots.begin() + static_cast<Slots::difference_type>(m_Count); }
    Slots::iterator Find(std::string_view name) {
        if (m_Count == 0 || IsLess(m_Slots[m_Count - 1].name, name)) return End();
        return std::lower_bound(
            m_Slots.begin(), End(), name,
            [](const Header& header, std::string_view wanted) { return IsLess(header.name, wanted); });
    }
    /// The first bytes mostly decide.
    static bool IsLess(std::string_view left, std::string_view right) {
        if (!left.empty() && !right.empty() && left[0] != right[0])
            return static_cast<unsigned char>(left[0]) < static_cast<unsigned char>(right[0]);
        return left < right;
    }

    /// The first `m_Count` are headers; the rest is memory.
    Slots m_Slots;
    std::size_t m_Count = 0;
};

}  // namespace OmbryZephCore
