#include "ObjectMapping/Impl/JSONSerializer_Impl.h"

#include "ObjectMapping/Impl/ConvertUTF8.h"
#include "Platform/SecureWipe.h"

#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace rapidjson {

// The library writes indents in one step only into a buffer of its own allocator; this is the same for ours.
template <>
inline void PutN(GenericStringBuffer<UTF8<>, Ombry::ObjectMapping::Impl::CheckedAllocator>& buffer, char byte,
                 std::size_t count) {
    std::memset(buffer.Push(count), byte, count);
}

}  // namespace rapidjson

namespace Ombry::ObjectMapping {
namespace Impl {
namespace {

constexpr std::size_t InitialBufferBytes = 256;
constexpr std::size_t InitialLevels = 16;  // of 16 bytes each
// The library reserves six bytes for each byte of a string and two for the quotes, and counts them in this
// type.
constexpr std::size_t LongestString = (std::numeric_limits<rapidjson::SizeType>::max() - 2) / 6;

}  // namespace

JSONSerializer_Impl::JSONSerializer_Impl()
    : buffer(nullptr, InitialBufferBytes), writer(buffer, nullptr, InitialLevels) {}

void JSONSerializer_Impl::Begin() {
    buffer.Clear();
    writer.Reset(buffer);
}

void JSONSerializer_Impl::End(std::string& text) {
    text = buffer.GetString();
    Begin();
}

// The key, and the null of an absent value; true if the value is still to be written.
bool JSONSerializer_Impl::BeginField(const char* name, const bool* present) {
    if (name) WriteString(name);
    if (!present || *present) return true;
    writer.Null();
    return false;
}

void JSONSerializer_Impl::WriteString(std::string_view text) {
    if (text.size() > LongestString)
        throw std::length_error("A string of " + std::to_string(text.size()) +
                                " bytes is too long for JSON.");
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void JSONSerializer_Impl::Field(const char* name, std::wstring& value, bool* present) {
    if (!BeginField(name, present)) return;
    std::string text = ConvertToUTF8(value);
    const Platform::ScopedWipe wipe(text);
    WriteString(text);
}

void JSONSerializer_Impl::Field(const char* name, std::string& value, bool* present) {
    if (BeginField(name, present)) WriteString(value);
}

void JSONSerializer_Impl::Field(const char* name, double& value, bool* present) {
    // For a NaN or an infinity the writer puts what comes before the value and then refuses. No field of the
    // system can hold one, so there is no guard.
    if (BeginField(name, present)) writer.Double(value);
}

void JSONSerializer_Impl::Field(const char* name, unsigned long long& value, bool* present) {
    if (BeginField(name, present)) writer.Uint64(value);
}

void JSONSerializer_Impl::Field(const char* name, long long& value, bool* present) {
    if (BeginField(name, present)) writer.Int64(value);
}

void JSONSerializer_Impl::Field(const char* name, unsigned long& value, bool* present) {
    unsigned long long wide = value;
    Field(name, wide, present);
}

void JSONSerializer_Impl::Field(const char* name, long& value, bool* present) {
    long long wide = value;
    Field(name, wide, present);
}

void JSONSerializer_Impl::Field(const char* name, unsigned int& value, bool* present) {
    if (BeginField(name, present)) writer.Uint(value);
}

void JSONSerializer_Impl::Field(const char* name, int& value, bool* present) {
    if (BeginField(name, present)) writer.Int(value);
}

void JSONSerializer_Impl::Field(const char* name, unsigned short& value, bool* present) {
    if (BeginField(name, present)) writer.Uint(value);
}

void JSONSerializer_Impl::Field(const char* name, short& value, bool* present) {
    if (BeginField(name, present)) writer.Int(value);
}

void JSONSerializer_Impl::Field(const char* name, bool& value, bool* present) {
    if (BeginField(name, present)) writer.Bool(value);
}

void JSONSerializer_Impl::Field(const char* name, ArrayIf& value, bool* present) {
    if (!BeginField(name, present)) return;
    writer.StartArray();
    while (value.Next(*this)) {
    }
    writer.EndArray();
}

void JSONSerializer_Impl::Field(const char* name, ObjectIf& value, bool* present) {
    if (!BeginField(name, present)) return;
    writer.StartObject();
    value.Map(*this);
    writer.EndObject();
}

}  // namespace Impl

std::shared_ptr<Serializer> CreateJSONSerializer() {
    return std::make_shared<Impl::JSONSerializer_Impl>();
}

}  // namespace Ombry::ObjectMapping
