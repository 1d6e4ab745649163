#include "ClientCommunications/Impl/CacheControl.h"

#include "ClientCommunications/Impl/RuntimeTexts.h"
#include "Platform/IClock.h"

#include <locale>
#include <sstream>

namespace Ombry::ClientCommunications {
namespace {

// The text behind the directive's "=" up to the next comma. A directive that is not there is looked for as
// if it stood one place before the beginning, so a piece of the text comes out instead of nothing: services
// that send only one of the two directives have been tuned to what that gives.
std::string ExtractDirective(const std::string& text, const std::string& name) {
    const std::size_t found = text.find(name + "=");
    const std::size_t begin = found == std::string::npos ? name.size() : found + name.size() + 1;
    if (begin > text.size()) ThrowInvalidStringPosition();
    return text.substr(begin, text.find(',', begin) - begin);
}

// A number as a stream reads it; 0 if there is none. One that does not fit stops at the end of the range.
long long ReadNumber(const std::string& text) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    long long number = 0;
    stream >> number;
    return number;
}

}  // namespace

void ApplyCacheControl(const std::string& value, FoundServicesDto& dto) {
    std::string text = value;
    std::erase(text, ' ');
    const std::string max = ExtractDirective(text, "max-age");
    const std::string stale = ExtractDirective(text, "stale-while-revalidate");
    if (max.empty() || stale.empty()) return;
    dto.expiryTime = SaturatingAdd(ReadNumber(max), Platform::WallSeconds());
    dto.maxStaleTime = ReadNumber(stale);
}

}  // namespace Ombry::ClientCommunications
