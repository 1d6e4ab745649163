#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace OmbryZephCore {

/// The headers of one message, in the order of their names (plain byte order), each name once. Their texts
/// lie in one piece of memory, which `Clear` keeps for the next message: a client that sends the like again
/// allocates nothing. Not thread-safe.
class ZephHeaderMap {
public:
    /// Adds a header, or replaces the value of the one of exactly that name. Cheapest in the order of names.
    void Set(std::string_view name, std::string_view value) {
        if (m_Headers.capacity() == 0) {
            m_Headers.reserve(OrdinaryCount);
            m_Text.reserve(OrdinaryLength);
        }
        const auto at = Find(name);
        if (at != m_Headers.end() && NameOf(*at) == name) {
            Replace(*at, value);
            return;
        }
        const std::size_t nName = m_Text.size(), nValue = nName + name.size() + 1;
        m_Text.resize(nValue + value.size() + 1);  // the NULs with it
        name.copy(m_Text.data() + nName, name.size());
        value.copy(m_Text.data() + nValue, value.size());
        m_Headers.insert(at, {nName, name.size(), nValue, value.size()});
    }

    void Clear() {
        m_Headers.clear();
        m_Text.clear();
    }
    std::size_t Count() const { return m_Headers.size(); }

    /// Visits all headers by name and value, NUL-terminated, in their order.
    template <class Callback>
    void ForEach(Callback callback) const {
        for (const Header& header : m_Headers)
            callback(m_Text.data() + header.nName, m_Text.data() + header.nValue);
    }

private:
    /// What a message with a token and a dozen of headers takes.
    static constexpr std::size_t OrdinaryCount = 16;
    static constexpr std::size_t OrdinaryLength = 1024;

    /// Where the two texts begin; each has a NUL behind it.
    struct Header {
        std::size_t nName;
        std::size_t nNameLength;
        std::size_t nValue;
        std::size_t nValueRoom;  // the longest value that was there: a shorter one takes its place
    };
    using Headers = std::vector<Header>;

    std::string_view NameOf(const Header& header) const {
        return {m_Text.data() + header.nName, header.nNameLength};
    }
    Headers::iterator Find(std::string_view name) {
        if (m_Headers.empty() || NameOf(m_Headers.back()) < name) return m_Headers.end();
        return std::lower_bound(
            m_Headers.begin(), m_Headers.end(), name,
            [this](const Header& header, std::string_view wanted) { return NameOf(header) < wanted; });
    }
    void Replace(Header& header, std::string_view value) {
        if (value.size() <= header.nValueRoom) {
            value.copy(m_Text.data() + header.nValue, value.size());
            m_Text[header.nValue + value.size()] = '\0';
            return;
        }
        const std::size_t nValue = m_Text.size();
        m_Text.append(value).push_back('\0');
        header.nValue = nValue;  // behind what may throw: until here the header is as it was
        header.nValueRoom = value.size();
    }

    Headers m_Headers;
    std::string m_Text;
};

}  // namespace OmbryZephCore
