#include "ClientCommunications/Impl/GuidText.h"

#include <cstdio>

#include "Platform/IRandom.h"

namespace Ombry::ClientCommunications {

std::string MakeGuidText() {
    const Platform::Guid guid = Platform::Random().NewGuid();
    char text[37];
    std::snprintf(text, sizeof text, "%08lx-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                  static_cast<unsigned long>(guid.data1), guid.data2, guid.data3, guid.data4[0],
                  guid.data4[1], guid.data4[2], guid.data4[3], guid.data4[4], guid.data4[5], guid.data4[6],
                  guid.data4[7]);
    return text;
}

}  // namespace Ombry::ClientCommunications
