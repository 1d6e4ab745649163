#include "ObjectMapping/Impl/JSONDeserializer_Impl.h"

#include "ObjectMapping/Impl/ConvertUTF8.h"
#include "ObjectMapping/Impl/RunStream.h"
#include "Platform/LongExponents.h"
#include "Platform/MadeOnce.h"
#include "Platform/SecureWipe.h"
#include "rapidjson/error/en.h"

#include <cmath>
#include <limits>
#include <stdexcept>
#include <type_traits>

namespace Ombry::ObjectMapping {
namespace Impl {
namespace {

constexpr std::size_t SliceBefore = 40;
constexpr std::size_t SliceAfter = 10;
// The library counts the bytes of a string, and a NUL behind them, in this type, and digits in a smaller one.
constexpr std::size_t LongestText = Platform::LongestTextOfNumbers;
static_assert(LongestText < std::numeric_limits<rapidjson::SizeType>::max() - 1);

template <class T>
void Empty(T& value) {
    value = T();
}

void Empty(ArrayIf& value) {
    value.Clear();
}

void Empty(ObjectIf& value) {
    value.Reset();
}

// Stores a whole number that was written with a fraction or an exponent, such as 5.0 or 1e3, if `Target` has
// room for it. The limits are powers of two and exact in a double, so nothing is cast before it is known to
// fit.
template <class Target, class Value, class T>
bool StoreWholeDouble(const Value& found, T& value) {
    if (!found.IsDouble()) return false;
    const double number = found.GetDouble();
    const double end = std::ldexp(1.0, std::numeric_limits<Target>::digits);
    const double begin = std::is_signed_v<Target> ? -end : 0.0;
    if (number != std::floor(number) || number < begin || number >= end) return false;
    value = static_cast<Target>(number);
    return true;
}

}  // namespace

JSONDeserializer_Impl::JSONDeserializer_Impl(bool strict) : strict(strict) {}

JSONDeserializer_Impl::~JSONDeserializer_Impl() {
    Platform::SecureWipe(serialization_);
}

void JSONDeserializer_Impl::Begin(const std::string& text) {
    End();
    if (text.size() > LongestText)
        throw std::runtime_error("ERROR: A text of " + std::to_string(text.size()) +
                                 " bytes is too long to be parsed.");
    Platform::SecureWipe(serialization_);
    serialization_ = text;
    // As a C string: the text ends at its first NUL, whatever stands behind it.
    try {
        RunStream stream(serialization_);
        document.ParseStream<rapidjson::kParseDefaultFlags, Utf8InRuns>(stream);
    } catch (const LongExponent&) {
        // Seldom enough for a copy; the messages show what came.
        std::string cut = serialization_;
        const Platform::ScopedWipe wipe(cut);
        Platform::CutLongExponents(cut);
        document.Parse(cut.c_str());
    }
    if (document.HasParseError()) ThrowParseFailed();
    contexts.push_back({{}, -1, &document});
}

void JSONDeserializer_Impl::End() {
    contexts.clear();
    // A fresh document, because emptying the old one would keep its memory.
    Document().Swap(document);
}

// The frame of every overload. `store` checks the type and stores the value; false is a type mismatch.
template <class T, class Store>
void JSONDeserializer_Impl::Read(const char* name, T& value, bool* present, const char* type, Store store) {
    const Lookup lookup = Enter(name, present);
    if (lookup == Lookup::Absent) Empty(value);
    if (lookup != Lookup::Found) return;
    const std::size_t depth = contexts.size();
    if (!store(*contexts.back().value)) ThrowMismatch(type);
    PopTo(depth - 1);
}

JSONDeserializer_Impl::Lookup JSONDeserializer_Impl::Enter(const char* name, bool* present) {
    static const Value& null = Platform::MadeOnce<const Value>();
    if (name) {
        const Value* member = FindMember(name);
        if (!member) {
            if (!present && strict) ThrowMissing(name);
            if (!present) return Lookup::Untouched;
            *present = false;
            return Lookup::Absent;
        }
        contexts.push_back({name, -1, member});
    } else if (contexts.empty()) {
        // A second nameless field after the root, or no `Begin`: there is no value to read.
        contexts.push_back({{}, -1, &null});
    }
    if (present && contexts.back().value->IsNull()) {
        *present = false;
        contexts.pop_back();
        return Lookup::Absent;
    }
    return Lookup::Found;
}

// Null if there is none, also where the enclosing value is no object: a look-up there is not defined.
const JSONDeserializer_Impl::Value* JSONDeserializer_Impl::FindMember(const char* name) const {
    if (contexts.empty() || !contexts.back().value->IsObject()) return nullptr;
    const Value& object = *contexts.back().value;
    const auto member = object.FindMember(name);
    return member == object.MemberEnd() ? nullptr : &member->value;
}

void JSONDeserializer_Impl::PopTo(std::size_t depth) {
    if (contexts.size() > depth)
        contexts.erase(contexts.begin() + static_cast<std::ptrdiff_t>(depth), contexts.end());
}

// An integer takes the number as it stands if it is of the wire type, and then only its low bits: a short is
// not checked for its range. The road from a double leaves `present` as the caller set it.
template <class Wire, class T>
void JSONDeserializer_Impl::ReadInteger(const char* name, T& value, bool* present, const char* type,
                                        bool (Value::*is)() const, Wire (Value::*get)() const) {
    // A native long is read as 32 bits wherever it is wider.
    using Target = std::conditional_t<(sizeof(T) < sizeof(Wire)), T, Wire>;
    Read(name, value, present, type, [&](const Value& found) {
        if (!(found.*is)()) return StoreWholeDouble<Target>(found, value);
        value = static_cast<T>((found.*get)());
        if (present) *present = true;
        return true;
    });
}

void JSONDeserializer_Impl::Field(const char* name, std::wstring& value, bool* present) {
    Read(name, value, present, "wstring", [&](const Value& found) {
        if (!found.IsString()) return false;
        value = ConvertFromUTF8({found.GetString(), found.GetStringLength()});
        if (present) *present = true;
        return true;
    });
}

void JSONDeserializer_Impl::Field(const char* name, std::string& value, bool* present) {
    Read(name, value, present, "string", [&](const Value& found) {
        if (!found.IsString()) return false;
        value.assign(found.GetString(), found.GetStringLength());
        if (present) *present = true;
        return true;
    });
}

void JSONDeserializer_Impl::Field(const char* name, double& value, bool* present) {
    // A number without fraction and exponent is not a double: writers of such a field send "42.0".
    Read(name, value, present, "double", [&](const Value& found) {
        if (!found.IsDouble()) return false;
        value = found.GetDouble();
        if (present) *present = true;
        return true;
    });
}

void JSONDeserializer_Impl::Field(const char* name, unsigned long long& value, bool* present) {
    ReadInteger(name, value, present, "unsigned long long", &Value::IsUint64, &Value::GetUint64);
}

void JSONDeserializer_Impl::Field(const char* name, long long& value, bool* present) {
    ReadInteger(name, value, present, "long long", &Value::IsInt64, &Value::GetInt64);
}

void JSONDeserializer_Impl::Field(const char* name, unsigned long& value, bool* present) {
    ReadInteger(name, value, present, "unsigned long", &Value::IsUint, &Value::GetUint);
}

void JSONDeserializer_Impl::Field(const char* name, long& value, bool* present) {
    ReadInteger(name, value, present, "long", &Value::IsInt, &Value::GetInt);
}

void JSONDeserializer_Impl::Field(const char* name, unsigned int& value, bool* present) {
    ReadInteger(name, value, present, "unsigned int", &Value::IsUint, &Value::GetUint);
}

void JSONDeserializer_Impl::Field(const char* name, int& value, bool* present) {
    ReadInteger(name, value, present, "int", &Value::IsInt, &Value::GetInt);
}

void JSONDeserializer_Impl::Field(const char* name, unsigned short& value, bool* present) {
    ReadInteger(name, value, present, "unsigned short", &Value::IsUint, &Value::GetUint);
}

void JSONDeserializer_Impl::Field(const char* name, short& value, bool* present) {
    ReadInteger(name, value, present, "short", &Value::IsInt, &Value::GetInt);
}

void JSONDeserializer_Impl::Field(const char* name, bool& value, bool* present) {
    Read(name, value, present, "bool", [&](const Value& found) {
        if (!found.IsBool()) return false;
        value = found.IsTrue();
        if (present) *present = true;
        return true;
    });
}

void JSONDeserializer_Impl::Field(const char* name, ArrayIf& value, bool* present) {
    Read(name, value, present, "array", [&](const Value& found) {
        if (!found.IsArray()) return false;
        if (present) *present = true;
        ReadElements(name, value, found);
        return true;
    });
}

// Each element has a context of its own on top of the array's, under the array's name.
void JSONDeserializer_Impl::ReadElements(const char* name, ArrayIf& array, const Value& elements) {
    const std::string_view elementName = name ? name : std::string_view();
    const std::size_t depth = contexts.size();
    int index = 0;
    array.Clear();
    for (auto element = elements.Begin(); element != elements.End(); ++element) {
        contexts.push_back({elementName, index++, element});
        array.Append(*this);
        PopTo(depth);  // already so, unless the array passed the element over
    }
}

void JSONDeserializer_Impl::Field(const char* name, ObjectIf& value, bool* present) {
    Read(name, value, present, "object", [&](const Value& found) {
        if (!found.IsObject()) return false;
        if (present) *present = true;
        // Not reset first: where the text lacks a field, the object keeps what it held.
        value.Map(*this);
        return true;
    });
}

// The path of the value on top, consuming the stack: it is only asked for on the way to a throw.
std::string JSONDeserializer_Impl::TakePath() {
    std::string path;
    for (const ParseContext& context : contexts) {
        if (!context.name.empty()) path.append(".").append(context.name);
        if (context.index != -1) path.append("[").append(std::to_string(context.index)).append("]");
    }
    contexts.clear();
    return path;
}

void JSONDeserializer_Impl::ThrowParseFailed() const {
    const std::size_t offset = document.GetErrorOffset();
    rapidjson::ParseErrorCode code = document.GetParseError();
    // The iterative parser takes a text that opens with one of "}]:," for an empty one. Only the end of the
    // text, a NUL, makes it empty.
    if (code == rapidjson::kParseErrorDocumentEmpty && serialization_[offset] != '\0')
        code = rapidjson::kParseErrorValueInvalid;
    const std::size_t begin = offset > SliceBefore ? offset - SliceBefore : 0;
    throw std::runtime_error("ERROR: Parse failed at offset " + std::to_string(offset) + " due to error '" +
                             rapidjson::GetParseError_En(code) + "' (near '" +
                             serialization_.substr(begin, offset + SliceAfter - begin) +
                             "') serialization_='" + serialization_ + "'");
}

void JSONDeserializer_Impl::ThrowMissing(const char* name) {
    throw std::runtime_error("ERROR: Missing required field '" + TakePath() + "." + name +
                             "' serialization_='" + serialization_ + "'");
}

void JSONDeserializer_Impl::ThrowMismatch(const char* type) {
    const std::string path = TakePath();
    throw std::runtime_error(std::string("ERROR: Expected type '") + type + "' when processing '" +
                             (path.empty() ? "." : path) + "' serialization_='" + serialization_ + "'");
}

}  // namespace Impl

std::shared_ptr<Deserializer> CreateJSONDeserializer(bool strict) {
    return std::make_shared<Impl::JSONDeserializer_Impl>(strict);
}

}  // namespace Ombry::ObjectMapping
