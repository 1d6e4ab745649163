#pragma once

#include "Platform/Windows/Api.h"

#include <streambuf>
#include <string>
#include <string_view>

namespace Ombry::Platform::Windows {

/// Shows UTF-8 text on a console in the units that it is made of, so that every name reads right whatever
/// code page the console has. Nothing is held back but the beginning of a character whose end is still to
/// come.
class ConsoleBuffer : public std::streambuf {
public:
    /// `console` stays the caller's.
    explicit ConsoleBuffer(HANDLE console) : console(console) {}

protected:
    int_type overflow(int_type byte) override;
    std::streamsize xsputn(const char* text, std::streamsize length) override;
    int sync() override;

private:
    bool Show(std::string_view text) const;

    HANDLE console;
    std::string pending;  // less than a character
};

}  // namespace Ombry::Platform::Windows
