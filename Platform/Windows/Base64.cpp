#include "Platform/Windows/Base64.h"

#include "Platform/Windows/Api.h"

#include <wincrypt.h>

#include <algorithm>
#include <iterator>
#include <limits>

namespace Ombry::Platform::Windows {
namespace {

constexpr DWORD TextForm = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
constexpr std::size_t Largest = std::numeric_limits<DWORD>::max();

std::string WithoutSpace(std::string_view text) {
    std::string kept;
    kept.reserve(text.size());
    std::copy_if(text.begin(), text.end(), std::back_inserter(kept),
                 [](char character) { return character != ' ' && (character < '\t' || character > '\r'); });
    return kept;
}

}  // namespace

ValueOr<std::uint32_t> EncodedLength(std::span<const std::uint8_t> binary) {
    if (binary.empty()) return std::uint32_t{0};  // which the system takes for a mistake
    if ((binary.size() + 2) / 3 > (Largest - 1) / 4) return Result::Failure(ERROR_FILE_TOO_LARGE);
    DWORD length = 0;  // counts a terminator as long as there is no text
    if (!CryptBinaryToStringA(binary.data(), static_cast<DWORD>(binary.size()), TextForm, nullptr, &length)) {
        return LastError();
    }
    return std::uint32_t{length - 1};
}

ValueOr<std::string> EncodeBase64(std::span<const std::uint8_t> binary) {
    const auto length = EncodedLength(binary);
    if (!length) return Result::Failure(length.Error());
    std::string text(*length, '\0');
    DWORD room = *length + 1;  // the terminator has its place behind every string
    if (!text.empty() && !CryptBinaryToStringA(binary.data(), static_cast<DWORD>(binary.size()), TextForm,
                                               text.data(), &room)) {
        return LastError();
    }
    return text;
}

ValueOr<std::string> DecodeBase64(std::string_view text) {
    const std::string digits = WithoutSpace(text);
    // To the system a length of 0 would mean "up to the terminator".
    if (digits.empty() || digits.size() > Largest) return Result::Failure(ERROR_INVALID_DATA);
    const auto length = static_cast<DWORD>(digits.size());
    std::string binary(digits.size(), '\0');
    auto* const bytes = reinterpret_cast<BYTE*>(binary.data());
    DWORD size = length;
    if (!CryptStringToBinaryA(digits.data(), length, CRYPT_STRING_BASE64, bytes, &size, nullptr, nullptr)) {
        return LastError();
    }
    binary.resize(size);
    // The system also reads texts that lack an end, or go on behind it.
    const auto again = EncodeBase64({bytes, binary.size()});
    if (!again || *again != digits) return Result::Failure(ERROR_INVALID_DATA);
    return binary;
}

}  // namespace Ombry::Platform::Windows
