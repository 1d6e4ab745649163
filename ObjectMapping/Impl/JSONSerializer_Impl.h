#pragma once

#include "ObjectMapping/Impl/CheckedAllocator.h"
#include "ObjectMapping/Serialization.h"
#include "rapidjson/prettywriter.h"
#include "rapidjson/stringbuffer.h"

#include <string_view>

namespace Ombry::ObjectMapping::Impl {

/// Writes indented JSON. It checks neither the order of calls nor duplicate keys, and a second root value
/// follows the first in the text; callers write one root between `Begin` and `End`. Strings hold UTF-8
/// already and pass as they are. What is written may be a secret: the memory behind it is wiped.
class JSONSerializer_Impl : public Serializer {
public:
    JSONSerializer_Impl();

    void Begin() override;
    void End(std::string& text) override;

    void Field(const char* name, std::wstring& value, bool* present) override;
    void Field(const char* name, std::string& value, bool* present) override;
    void Field(const char* name, double& value, bool* present) override;
    void Field(const char* name, unsigned long long& value, bool* present) override;
    void Field(const char* name, long long& value, bool* present) override;
    void Field(const char* name, unsigned long& value, bool* present) override;
    void Field(const char* name, long& value, bool* present) override;
    void Field(const char* name, unsigned int& value, bool* present) override;
    void Field(const char* name, int& value, bool* present) override;
    void Field(const char* name, unsigned short& value, bool* present) override;
    void Field(const char* name, short& value, bool* present) override;
    void Field(const char* name, bool& value, bool* present) override;
    void Field(const char* name, ArrayIf& value, bool* present) override;
    void Field(const char* name, ObjectIf& value, bool* present) override;

private:
    using Buffer = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, CheckedAllocator>;
    using Writer = rapidjson::PrettyWriter<Buffer, rapidjson::UTF8<>, rapidjson::UTF8<>, CheckedAllocator>;

    bool BeginField(const char* name, const bool* present);
    void WriteString(std::string_view text);

    Buffer buffer;
    Writer writer;
};

}  // namespace Ombry::ObjectMapping::Impl
