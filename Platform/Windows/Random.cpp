#include "Platform/IRandom.h"
#include "Platform/MadeOnce.h"
#include "Platform/Windows/Api.h"

#include <rpc.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

namespace Ombry::Platform {
namespace {

using GenerateRandom = BOOLEAN(WINAPI*)(void* bytes, ULONG count);

// The system's RtlGenRandom, from the library that has it; null if there is none. What <ntsecapi.h> declares
// is imported from the second of these, which refers to the first: the system would look for that when the
// program starts, beside the program first. Systems that have not the first have it in the second itself.
GenerateRandom SystemsGenerator() {
    static const GenerateRandom generator = []() -> GenerateRandom {
        for (const wchar_t* name : {L"cryptbase.dll", L"advapi32.dll"}) {
            const HMODULE library = LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
            const FARPROC found = library ? GetProcAddress(library, "SystemFunction036") : nullptr;
            if (found) return reinterpret_cast<GenerateRandom>(reinterpret_cast<void*>(found));
        }
        return nullptr;
    }();
    return generator;
}

class WindowsRandom : public IRandom {
public:
    std::uint32_t SeedWord() override {
        std::array<std::uint8_t, 4> bytes;
        if (const Result result = Bytes(bytes); !result) ThrowNoRandomBytes(result.Error());
        std::uint32_t word;
        std::memcpy(&word, bytes.data(), sizeof word);
        return word;
    }

    Result Bytes(std::span<std::uint8_t> bytes) override {
        const GenerateRandom generate = SystemsGenerator();
        if (generate == nullptr) return Result::Failure(ERROR_PROC_NOT_FOUND);
        while (!bytes.empty()) {
            const std::size_t count = std::min<std::size_t>(bytes.size(), std::numeric_limits<ULONG>::max());
            if (!generate(bytes.data(), static_cast<ULONG>(count))) return Windows::LastError();
            bytes = bytes.subspan(count);
        }
        return Result::Success();
    }

    Guid NewGuid() override {
        UUID made{};
        // What the system says of it is not looked at: an identifier that it calls unique on this machine
        // alone will do, and its other numbers speak of network cards, which have no part in these.
        static_cast<void>(UuidCreate(&made));
        Guid guid;
        guid.data1 = made.Data1;
        guid.data2 = made.Data2;
        guid.data3 = made.Data3;
        std::copy(std::begin(made.Data4), std::end(made.Data4), guid.data4.begin());
        return guid;
    }

private:
    // What these callers hand out has no room for a failure, and must never be anything but random.
    [[noreturn]] static void ThrowNoRandomBytes(long error) {
        throw std::runtime_error("The system gave no random bytes, error " + std::to_string(error));
    }
};

}  // namespace

template <>
IRandom& Production<IRandom>() {
    return MadeOnce<WindowsRandom>();
}

}  // namespace Ombry::Platform
