#include "Platform/Process.h"
#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Platform/Windows/SecondProcess.h"

#include <fcntl.h>
#include <io.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>

namespace Ombry::Tests {
namespace {

/// Hardens a process of its own, since nothing of it can be undone, and has `work` say its exit code.
template <class Work>
DWORD InASecondProcess(Work work) {
    if (!SecondProcess::Message().empty()) {
        const DWORD code = work();
        TerminateProcess(GetCurrentProcess(), code);
    }
    return SecondProcess("go").Wait();
}

/// As the runtime library takes a stream that is not open: by a failure, not by the end of the process.
void Ignore(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, std::uintptr_t) {}

TEST(HardenProcessTest, NoBoxWaitsForAnybody) {
    EXPECT_EQ(InASecondProcess([] {
                  Platform::HardenProcess();
                  return GetErrorMode();
              }),
              DWORD{SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX});
}

TEST(HardenProcessTest, ProcessThatBreaksEndsAtOnceWithTheNumberOfWhatBrokeIt) {
    EXPECT_EQ(InASecondProcess([] {
                  // Stands for whatever reports the end of a process, with its memory.
                  SetUnhandledExceptionFilter([](EXCEPTION_POINTERS*) -> LONG {
                      TerminateProcess(GetCurrentProcess(), 55);
                      return EXCEPTION_EXECUTE_HANDLER;
                  });
                  Platform::HardenProcess();
                  RaiseException(0xE0000001, 0, 0, nullptr);
                  return DWORD{0};
              }),
              0xE0000001);
}

TEST(HardenProcessTest, ProcessThatGivesUpEndsWithTheCodeOfTheRuntimeLibrary) {
    EXPECT_EQ(InASecondProcess([]() -> DWORD {
                  Platform::HardenProcess();
                  // Something stands before the library's own way, which may report the end.
                  const auto handler = std::signal(SIGABRT, SIG_DFL);
                  if (handler == SIG_DFL) return 1;
                  std::signal(SIGABRT, handler);
                  std::abort();
              }),
              3u);
}

TEST(HardenProcessTest, StandardStreamsTakeBytesAsTheyAre) {
    EXPECT_EQ(InASecondProcess([]() -> DWORD {
                  for (int stream = 0; stream <= 2; ++stream)
                      _setmode(stream, _O_TEXT);
                  Platform::HardenProcess();
                  for (int stream = 0; stream <= 2; ++stream) {
                      if (_setmode(stream, _O_BINARY) != _O_BINARY) return 1;
                  }
                  return 0;
              }),
              0u);
}

TEST(HardenProcessTest, NoNewFileTakesThePlaceOfAClosedStandardStreamAndUsingItStaysAnError) {
    EXPECT_EQ(InASecondProcess([]() -> DWORD {
                  _set_invalid_parameter_handler(Ignore);
                  for (int stream = 0; stream <= 2; ++stream)
                      _close(stream);
                  Platform::HardenProcess();
                  if (_open("NUL", _O_RDWR) <= 2) return 1;
                  char byte = 0;
                  if (_read(0, &byte, 1) != -1) return 2;
                  if (_write(1, "x", 1) != -1 || _write(2, "x", 1) != -1) return 3;
                  return 0;
              }),
              0u);
}

TEST(HardenProcessTest, LibraryIsTakenFromTheSystemsFolderAlone) {
    const TemporaryDirectory directory;
    const auto planted = [] { return LoadLibraryW(L"ombry-planted.dll"); };
    const DWORD code = InASecondProcess([&]() -> DWORD {
        wchar_t folder[MAX_PATH] = {};
        GetSystemDirectoryW(folder, MAX_PATH);
        std::filesystem::current_path(directory.Path());
        std::filesystem::copy_file(std::wstring(folder) + L"\\version.dll", "ombry-planted.dll");
        if (const HMODULE found = planted()) {
            FreeLibrary(found);
        } else {
            return 1;
        }
        Platform::HardenProcess();
        if (planted()) return 2;
        return LoadLibraryW(L"version.dll") ? 0 : 3;
    });
    EXPECT_EQ(code, 0u);
}

TEST(TakeArgumentsTest, ArgumentsAreUtf8AndNoFileNamesStandForAStar) {
    if (SecondProcess::Message().empty()) {
        SecondProcess second("go", L"\u00E4\u20AC\U0001F600 \"a b\" * \"\" c:\\d\\");
        EXPECT_EQ(second.Wait(), 0u);
        return;
    }
    int count = 0;
    char** values = nullptr;
    Platform::TakeArguments(count, values);
    ASSERT_GE(count, 5);
    EXPECT_STREQ(values[count - 5], "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_STREQ(values[count - 4], "a b");
    EXPECT_STREQ(values[count - 3], "*");
    EXPECT_STREQ(values[count - 2], "");
    EXPECT_STREQ(values[count - 1], "c:\\d\\");
    EXPECT_EQ(values[count], nullptr);
}

}  // namespace
}  // namespace Ombry::Tests
