#include "ObjectMapping/Impl/ConvertUTF8.h"

#include "Platform/ITextConversion.h"

#include <stdexcept>

namespace Ombry::ObjectMapping::Impl {
namespace {

using Platform::ITextConversion;

// The count of a conversion that worked.
std::size_t Checked(ITextConversion::Count result, const char* message) {
    if (result.count < 1) throw std::runtime_error(message + std::to_string(result.error));
    return static_cast<std::size_t>(result.count);
}

}  // namespace

std::wstring ConvertFromUTF8(std::string_view text) {
    if (text.empty()) return {};
    ITextConversion& conversion = Platform::TextConversion();
    std::wstring wide(Checked(conversion.Utf8ToWide(text, nullptr, 0),
                              "ConvertFromUTF8: MultiByteToWideChar (first call) failed with error "),
                      L'\0');
    // The function that this message names is not the one that failed. Administrators search for the text as
    // it stands, so it stays.
    Checked(conversion.Utf8ToWide(text, wide.data(), wide.size()),
            "ConvertFromUTF8: WideCharToMultiByte (second call) failed with error ");
    return wide;
}

std::string ConvertToUTF8(std::wstring_view text) {
    if (text.empty()) return {};
    ITextConversion& conversion = Platform::TextConversion();
    std::string bytes(Checked(conversion.WideToUtf8(text, nullptr, 0),
                              "ConvertToUTF8: WideCharToMultiByte (first call) failed with error "),
                      '\0');
    Checked(conversion.WideToUtf8(text, bytes.data(), bytes.size()),
            "ConvertToUTF8: WideCharToMultiByte (second call) failed with error ");
    return bytes;
}

}  // namespace Ombry::ObjectMapping::Impl
