#pragma once

#include <string>

/// Objects to JSON and back. Several threads may do so at once, each with mappers, arrays and objects of its
/// own: none of these has a lock, and the functions share nothing.
namespace Ombry::ObjectMapping {

class MapperIf;

/// A class that describes its fields once, for both directions: writing out and reading in.
class ObjectIf {
public:
    /// Hands every field to `mapper`, in the order in which they stand in the text.
    virtual void Map(MapperIf& mapper) = 0;
    /// Puts every field back to its default-constructed value.
    virtual void Reset() = 0;
    virtual ~ObjectIf() = default;
};

/// A transient adaptor around a container, made on the stack for one call of `MapperIf::Field`.
class ArrayIf {
public:
    /// The writing step: hands the element at the cursor to `mapper` and moves on; false at the end.
    virtual bool Next(MapperIf& mapper) = 0;
    /// Empties the container, before elements are read.
    virtual void Clear() = 0;
    /// The reading step: hands a new element to `mapper`, in exactly one nameless `Field` call, and appends
    /// it.
    virtual void Append(MapperIf& mapper) = 0;
    virtual ~ArrayIf() = default;
};

static_assert(sizeof(int) == 4 && sizeof(short) == 2 && sizeof(long long) == 8,
              "The mapped integer types have fixed widths; long and unsigned long are read as 32 bits "
              "wherever they are "
              "wider.");

/// The visitor, of either direction. `name` is the key in the enclosing object and outlives the call; null
/// means no key: the root value or an element of an array. `present` null declares the field required;
/// otherwise the field is optional, and the flag says (writing) or is told (reading) whether there is a
/// value. Fields are declared with the types spelled here, never with aliases such as int64_t or size_t,
/// which mean another overload on another platform.
class MapperIf {
public:
    /// Writes the value, or reads it. Reading throws `std::runtime_error` for a value of another type or a
    /// number that does not fit, and for a required field that is missing if the mapper is strict. Of an
    /// integer that fits 32 bits a short takes the low 16, and does not fail.
    /// @{
    virtual void Field(const char* name, std::wstring& value, bool* present) = 0;
    virtual void Field(const char* name, std::string& value, bool* present) = 0;
    virtual void Field(const char* name, double& value, bool* present) = 0;
    virtual void Field(const char* name, unsigned long long& value, bool* present) = 0;
    virtual void Field(const char* name, long long& value, bool* present) = 0;
    virtual void Field(const char* name, unsigned long& value, bool* present) = 0;
    virtual void Field(const char* name, long& value, bool* present) = 0;
    virtual void Field(const char* name, unsigned int& value, bool* present) = 0;
    virtual void Field(const char* name, int& value, bool* present) = 0;
    virtual void Field(const char* name, unsigned short& value, bool* present) = 0;
    virtual void Field(const char* name, short& value, bool* present) = 0;
    virtual void Field(const char* name, bool& value, bool* present) = 0;
    virtual void Field(const char* name, ArrayIf& value, bool* present) = 0;
    virtual void Field(const char* name, ObjectIf& value, bool* present) = 0;
    /// @}
    virtual ~MapperIf() = default;
};

}  // namespace Ombry::ObjectMapping
