#include "ObjectMapping/Serialization.h"

#include "ObjectMapping/Impl/JSONDeserializer_Impl.h"

namespace Ombry::ObjectMapping {

std::string SerializeObject(ObjectIf& object, bool* present) {
    const std::shared_ptr<Serializer> serializer = CreateJSONSerializer();
    std::string text;
    serializer->Begin();
    serializer->Field(nullptr, object, present);
    serializer->End(text);
    return text;
}

void DeserializeObject(ObjectIf& object, const std::string& text, bool* present, bool strict) {
    Impl::JSONDeserializer_Impl deserializer(strict);
    deserializer.BeginOnStayingText(text);
    deserializer.Field(nullptr, object, present);
    deserializer.End();
}

}  // namespace Ombry::ObjectMapping
