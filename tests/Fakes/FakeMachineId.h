#pragma once

#include "Platform/Linux/IMachineId.h"

#include <string>

namespace Ombry::Tests {

/// A machine that is what the test says it is.
class FakeMachineId : public Platform::IMachineId {
public:
    explicit FakeMachineId(std::string id) : id(std::move(id)) {}
    Platform::ValueOr<std::string> MachineId() override {
        if (error != 0) return Platform::Result::Failure(error);
        return id;
    }

    std::string id;
    int error = 0;  ///< fails with it unless it is 0
};

}  // namespace Ombry::Tests
