#pragma once

#include <locale>

namespace Ombry::Tests {

/// Makes the global locale one that writes "1.000" for a thousand, for a scope.
class GroupingLocale {
public:
    GroupingLocale() : before(std::locale::global(std::locale(std::locale::classic(), new Grouping))) {}
    ~GroupingLocale() { std::locale::global(before); }
    GroupingLocale(const GroupingLocale&) = delete;
    GroupingLocale& operator=(const GroupingLocale&) = delete;

private:
    class Grouping : public std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };

    const std::locale before;
};

}  // namespace Ombry::Tests
