#pragma once

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <functional>
#include <string>

namespace Ombry::Sandbox {

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

/// The text that `write` produces.
inline std::string WriteJson(const std::function<void(JsonWriter&)>& write) {
    rapidjson::StringBuffer buffer;
    JsonWriter writer(buffer);
    write(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

inline void WriteText(JsonWriter& writer, const std::string& text) {
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

inline void WriteMember(JsonWriter& writer, const char* key, const std::string& text) {
    writer.Key(key);
    WriteText(writer, text);
}

/// The string member of an object; empty if it is missing or of another type.
inline std::string TextMember(const rapidjson::Value& object, const char* key) {
    if (!object.IsObject()) return std::string();
    const auto member = object.FindMember(key);
    if (member == object.MemberEnd() || !member->value.IsString()) return std::string();
    return std::string(member->value.GetString(), member->value.GetStringLength());
}

}  // namespace Ombry::Sandbox
