#pragma once

#include "Platform/Windows/Api.h"

#include <gtest/gtest.h>

#include <string>

namespace Ombry::Tests {

/// The test that is running, once more, in a process of its own beside this one. A test that makes one asks
/// first which of the two it is in.
class SecondProcess {
public:
    /// What the first process had to say; empty in the first process. ASCII.
    static std::string Message() {
        char text[512] = {};
        GetEnvironmentVariableA(Name, text, sizeof text);
        return text;
    }

    /// `arguments` are what its command line has behind those of the test library, `flags` those that a
    /// process is made with.
    explicit SecondProcess(const std::string& message, const std::wstring& arguments = {}, DWORD flags = 0) {
        wchar_t program[MAX_PATH] = {};
        GetModuleFileNameW(nullptr, program, MAX_PATH);
        const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
        const std::string filter = std::string(test->test_suite_name()) + "." + test->name();
        std::wstring line = L"test --gtest_brief=1 --gtest_filter=" +
                            std::wstring(filter.begin(), filter.end()) + L" " + arguments;
        SetEnvironmentVariableA(Name, message.c_str());
        STARTUPINFOW start{};
        start.cb = sizeof start;
        EXPECT_TRUE(CreateProcessW(program, line.data(), nullptr, nullptr, FALSE, flags, nullptr, nullptr,
                                   &start, &process));
        SetEnvironmentVariableA(Name, nullptr);
    }
    ~SecondProcess() {
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }
    SecondProcess(const SecondProcess&) = delete;
    SecondProcess& operator=(const SecondProcess&) = delete;

    /// Waits for its end; the value is its exit code, 0 if its test passed.
    DWORD Wait() {
        WaitForSingleObject(process.hProcess, INFINITE);
        DWORD code = 0;
        GetExitCodeProcess(process.hProcess, &code);
        return code;
    }

private:
    static constexpr const char* Name = "OMBRY_SECOND_PROCESS";

    PROCESS_INFORMATION process{};
};

}  // namespace Ombry::Tests
