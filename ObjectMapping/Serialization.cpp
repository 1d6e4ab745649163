#include "ObjectMapping/Serialization.h"

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
    const std::shared_ptr<Deserializer> deserializer = CreateJSONDeserializer(strict);
    deserializer->Begin(text);
    deserializer->Field(nullptr, object, present);
    deserializer->End();
}

}  // namespace Ombry::ObjectMapping
