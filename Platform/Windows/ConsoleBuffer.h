#pragma once

#include <functional>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>

namespace Ombry::Platform::Windows {

/// Shows UTF-8 text on a console in the units that it is made of, so that every name reads right whatever
/// code page the console has. Nothing is held back but the beginning of a character whose end is still to
/// come.
class ConsoleBuffer : public std::streambuf {
public:
    /// Shows some units, never half of a pair, and no more than `MostUnits` at a time; the value is how many
    /// were taken, 0 for a failure.
    using Console = std::function<std::size_t(std::wstring_view units)>;

    /// Older consoles have no more room.
    static constexpr std::size_t MostUnits = 8192;

    explicit ConsoleBuffer(Console console) : console(std::move(console)) {}

protected:
    int_type overflow(int_type byte) override;
    std::streamsize xsputn(const char* text, std::streamsize length) override;
    int sync() override;

private:
    bool Show(std::string_view text) const;

    const Console console;
    std::string pending;  // less than a character
};

}  // namespace Ombry::Platform::Windows
