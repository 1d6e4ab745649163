#include "ClientCommunications/Impl/RuntimeTexts.h"

#include <filesystem>
#include <limits>
#include <stdexcept>
#include <system_error>

namespace Ombry::ClientCommunications {
namespace {

class FilesystemError : public std::filesystem::filesystem_error {
public:
    FilesystemError(const std::string& operation, const std::string& path, std::error_code code)
        : filesystem_error(operation, path, code),
          text(operation + ": " + code.message() + ": \"" + path + "\"") {}
    const char* what() const noexcept override { return text.c_str(); }

private:
    std::string text;
};

bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace

void ThrowInvalidMapKey() {
    throw std::out_of_range("invalid map<K, T> key");
}

void ThrowInvalidStringPosition() {
    throw std::out_of_range("invalid string position");
}

void ThrowCreateDirectoriesFailed(const std::string& path, int error) {
    throw FilesystemError("create_directories", path, std::error_code(error, std::system_category()));
}

std::uint32_t ParseUnsigned32(const std::string& text) {
    std::size_t position = 0;
    while (position < text.size() && IsSpace(text[position]))
        ++position;
    const bool negative = position < text.size() && text[position] == '-';
    if (position < text.size() && (text[position] == '-' || text[position] == '+')) ++position;
    const std::size_t firstDigit = position;
    std::uint64_t value = 0;
    for (; position < text.size() && text[position] >= '0' && text[position] <= '9'; ++position) {
        value = value * 10 + static_cast<std::uint64_t>(text[position] - '0');
        if (value > std::numeric_limits<std::uint32_t>::max())
            throw std::out_of_range("stoul argument out of range");
    }
    if (position == firstDigit) throw std::invalid_argument("invalid stoul argument");
    const auto word = static_cast<std::uint32_t>(value);
    return negative ? 0U - word : word;
}

}  // namespace Ombry::ClientCommunications
