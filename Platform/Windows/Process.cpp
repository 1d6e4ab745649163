#include "Platform/Process.h"

#include "Platform/Windows/Api.h"
#include "Platform/Windows/ConsoleBuffer.h"
#include "Platform/Windows/Utf8.h"

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <csignal>
#include <iostream>
#include <memory>
#include <vector>

// As <werapi.h> has it, which not every compiler for this system can read.
extern "C" HRESULT WINAPI WerSetFlags(DWORD flags);

namespace Ombry::Platform {
namespace {

constexpr DWORD WithoutTheHeap = 1;  // WER_FAULT_REPORTING_FLAG_NOHEAP
constexpr UINT AbortedExitCode = 3;  // as the runtime library has it

// The end of a process that broke: at once, without a box that waits for somebody and without a report, in
// which its memory would leave the machine.
LONG WINAPI EndAtOnce(EXCEPTION_POINTERS* what) {
    TerminateProcess(GetCurrentProcess(), what->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

void LeaveNoMemoryBehind() noexcept {
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    SetUnhandledExceptionFilter(EndAtOnce);
    std::signal(SIGABRT, [](int) { TerminateProcess(GetCurrentProcess(), AbortedExitCode); });
    // What passes by the handler, as a corrupted heap does, is reported without what the heap holds.
    WerSetFlags(WithoutTheHeap);
}

// What is loaded from here on comes from the system's folder and never from that of the program, where
// whoever filled a folder of downloads may have put another. What the program imports was loaded before.
void LoadFromTheSystemAlone() noexcept {
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
}

// Puts something harmless in the place of each standard stream that is closed, opened the wrong way round,
// so that using the stream fails as before; and has the others take bytes as they are.
void PrepareStandardStreams() noexcept {
    for (int stream = 0; stream <= 2; ++stream) {
        // What the program was started without is another case, -2: no file takes that number.
        if (_get_osfhandle(stream) == -1) {
            // The lowest free number is the one that was found free.
            const int opened = _open("NUL", (stream == 0 ? _O_WRONLY : _O_RDONLY) | _O_NOINHERIT);
            if (opened != stream && opened != -1) _close(opened);
        }
        _setmode(stream, _O_BINARY);
    }
}

void ShowOnConsole(std::ostream& stream, DWORD standard) {
    const HANDLE handle = GetStdHandle(standard);
    DWORD mode = 0;
    if (!GetConsoleMode(handle, &mode)) return;
    const auto show = [handle](std::wstring_view units) -> std::size_t {
        DWORD shown = 0;
        const auto length = static_cast<DWORD>(units.size());
        return WriteConsoleW(handle, units.data(), length, &shown, nullptr) ? shown : 0;
    };
    // As long as the process lives: other threads may still write when it ends.
    stream.rdbuf(new Windows::ConsoleBuffer(show));
}

}  // namespace

void HardenProcess() noexcept {
    LeaveNoMemoryBehind();
    LoadFromTheSystemAlone();
    PrepareStandardStreams();
    ShowOnConsole(std::cout, STD_OUTPUT_HANDLE);
    ShowOnConsole(std::cerr, STD_ERROR_HANDLE);
}

void TakeArguments(int& count, char**& values) {
    struct Arguments {
        std::vector<std::string> texts;
        std::vector<char*> pointers;
    };
    int found = 0;
    const std::unique_ptr<LPWSTR, decltype(&LocalFree)> wide(CommandLineToArgvW(GetCommandLineW(), &found),
                                                             &LocalFree);
    if (!wide) return;
    auto& arguments = *new Arguments;
    for (int i = 0; i < found; ++i)
        arguments.texts.push_back(Windows::Utf8(wide.get()[i]));
    for (std::string& text : arguments.texts)
        arguments.pointers.push_back(text.data());
    arguments.pointers.push_back(nullptr);
    count = found;
    values = arguments.pointers.data();
}

}  // namespace Ombry::Platform
