#include "Sandbox/EventStream.h"

#include "Platform/IClock.h"

#include <utility>

namespace Ombry::Sandbox {

EventStream::EventStream(Page& page, Journal& journal, std::string ownUrl)
    : page(page),
      journal(journal),
      ownUrl(std::move(ownUrl)),
      lastOverview(Platform::Clock().SteadyNow() - LongestSilence) {}

std::optional<std::string> EventStream::Next() {
    // The first piece is there at once.
    const Duration age = Platform::Clock().SteadyNow() - lastOverview;
    if (age < LongestSilence) journal.AwaitAfter(number, Tick);
    if (journal.IsClosed()) return std::nullopt;
    std::string text = page.RequestsEvent(number);
    changed = changed || !text.empty();
    const Duration now = Platform::Clock().SteadyNow();
    if (now - lastOverview >= (changed ? Duration(Tick) : Duration(LongestSilence))) {
        text += page.OverviewEvent(ownUrl);
        lastOverview = now;
        changed = false;
    }
    return text;
}

}  // namespace Ombry::Sandbox
