#pragma once

#include <string>

#include "Platform/IMachineId.h"

namespace Ombry::Tests {

/// A machine that is what the test says it is.
class FakeMachineId : public Platform::IMachineId {
public:
    explicit FakeMachineId(std::string id) : id(std::move(id)) {}
    std::string MachineId() override { return id; }

    std::string id;
};

}  // namespace Ombry::Tests
