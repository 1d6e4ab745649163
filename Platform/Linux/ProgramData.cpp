#include "Platform/Linux/ProgramData.h"

#include "Platform/IKnownFolders.h"
#include "Platform/ITextConversion.h"

namespace Ombry::Platform::Linux {

ValueOr<std::string> ProgramDataFolder() {
    const auto folder = KnownFolders().ProgramDataQuennet();
    if (!folder) return Result::Failure(folder.Error());
    return Utf8(*folder);
}

ValueOr<std::string> Utf8(std::wstring_view wide) {
    if (wide.empty()) return std::string();
    ITextConversion& conversion = Production<ITextConversion>();
    std::string text(wide.size() * 4, '\0');  // never more than four bytes for a unit
    const auto converted = conversion.WideToUtf8(wide, text.data(), text.size());
    if (converted.count < 1) return Result::Failure(converted.error);
    text.resize(static_cast<std::size_t>(converted.count));
    return text;
}

}  // namespace Ombry::Platform::Linux
