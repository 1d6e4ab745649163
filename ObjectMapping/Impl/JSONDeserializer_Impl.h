#pragma once

#include "ObjectMapping/Impl/CheckedAllocator.h"
#include "ObjectMapping/Impl/WipedPool.h"
#include "ObjectMapping/Serialization.h"
#include "rapidjson/document.h"

#include <string_view>
#include <vector>

namespace Ombry::ObjectMapping::Impl {

/// Reads one JSON text: parses it whole and answers the `Field` calls of an object's `Map` by looking the
/// members up. One instance belongs to one thread; after a failure it is not used further. The messages hold
/// the whole text, secrets included; what is kept of the text, and what is made of it on the way, is wiped.
class JSONDeserializer_Impl : public Deserializer {
public:
    /// `strict`: whether a required field that the text lacks is a failure.
    explicit JSONDeserializer_Impl(bool strict);
    ~JSONDeserializer_Impl() override;
    JSONDeserializer_Impl(const JSONDeserializer_Impl&) = delete;
    JSONDeserializer_Impl& operator=(const JSONDeserializer_Impl&) = delete;

    void Begin(const std::string& text) override;
    void End() override;

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
    using Document = rapidjson::GenericDocument<rapidjson::UTF8<>, WipedPool, CheckedAllocator>;
    using Value = Document::ValueType;

    /// A value that is being read, on the way from the root down.
    struct ParseContext {
        std::string_view name;  ///< empty if it has none; lives as long as the call of `Field`
        int index;              ///< in an enclosing array, else -1
        const Value* value;
    };

    /// What the look-up of a field came to.
    enum class Lookup {
        Found,     ///< its value is on top of the stack
        Absent,    ///< optional, and missing or null: the field is emptied
        Untouched  ///< required and missing, where that is no failure
    };

    template <class T, class Store>
    void Read(const char* name, T& value, bool* present, const char* type, Store store);
    template <class Wire, class T>
    void ReadInteger(const char* name, T& value, bool* present, const char* type, bool (Value::*is)() const,
                     Wire (Value::*get)() const);
    Lookup Enter(const char* name, bool* present);
    const Value* FindMember(const char* name) const;
    void ReadElements(const char* name, ArrayIf& array, const Value& elements);
    void PopTo(std::size_t depth);
    std::string TakePath();

    [[noreturn]] void ThrowParseFailed() const;
    [[noreturn]] void ThrowMissing(const char* name);
    [[noreturn]] void ThrowMismatch(const char* type);

    const bool strict;
    Document document;
    std::string serialization_;
    std::vector<ParseContext> contexts;
};

}  // namespace Ombry::ObjectMapping::Impl
