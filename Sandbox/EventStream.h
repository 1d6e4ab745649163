#pragma once

#include "Sandbox/Journal.h"
#include "Sandbox/Page.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Ombry::Sandbox {

/// What one open page is told, piece by piece: everything at first, requests as they come, the rest soon
/// behind them and now and then in any case, since other instances change it too. Used by one thread.
class EventStream {
public:
    static constexpr auto Tick = std::chrono::milliseconds(500);     ///< between two overviews, at least
    static constexpr auto LongestSilence = std::chrono::seconds(3);  ///< the page takes 10 for a cut

    /// Nothing is copied.
    EventStream(Page& page, Journal& journal, std::string ownUrl);

    /// The next piece, waited for no longer than a tick; empty if there is none yet, none if the journal was
    /// closed.
    std::optional<std::string> Next();

private:
    Page& page;
    Journal& journal;
    const std::string ownUrl;
    std::uint64_t number = 0;
    bool changed = true;  ///< since the last overview
    Duration lastOverview{};
};

}  // namespace Ombry::Sandbox
