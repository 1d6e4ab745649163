#pragma once

#include "Platform/IRandom.h"

namespace Ombry::SecClientConfig {

/// Chance as it is, but for the seeds: the waits of the background threads are the same in each run, and
/// hours long. In one of some hundred runs of the real tool a token is refreshed at once, beside the
/// command; whoever counts requests cannot have that. Never shipped.
class SeedsHere : public Platform::IRandom {
public:
    std::uint32_t SeedWord() override { return 1; }
    Platform::Result Bytes(std::span<std::uint8_t> bytes) override { return real.Bytes(bytes); }
    Platform::Guid NewGuid() override { return real.NewGuid(); }

private:
    Platform::IRandom& real = Platform::Production<Platform::IRandom>();
};

}  // namespace Ombry::SecClientConfig
