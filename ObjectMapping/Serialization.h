#pragma once

#include "ObjectMapping/MapperIf.h"

#include <memory>
#include <string>

namespace Ombry::ObjectMapping {

/// The writing direction: one text for each root value. A string of more than 715,827,882 bytes throws
/// `std::length_error`. One thread at a time.
class Serializer : public MapperIf {
public:
    /// Forgets anything produced so far.
    virtual void Begin() = 0;
    /// Stores the text produced and leaves the serializer reset.
    virtual void End(std::string& text) = 0;
};

/// The reading direction. Failures are `std::runtime_error`; the object read is then left as far as it had
/// got, and the deserializer is not used further. The messages hold the whole input, secrets included. One
/// thread at a time.
class Deserializer : public MapperIf {
public:
    /// Parses the text and positions the mapper on the root value. A text of more than 1 GiB is refused
    /// unread, and is the only one that the message does not hold.
    virtual void Begin(const std::string& text) = 0;
    /// Frees what was parsed; the object that was read stays, and so does the copy of the text, until the
    /// next `Begin` or the end of the deserializer.
    virtual void End() = 0;
};

/// A writer of JSON.
std::shared_ptr<Serializer> CreateJSONSerializer();

/// `strict`: whether a required field that the text lacks is a failure.
std::shared_ptr<Deserializer> CreateJSONDeserializer(bool strict);

/// The object, which nobody may change meanwhile, as indented JSON text; "null" if `present` is given and
/// false.
std::string SerializeObject(ObjectIf& object, bool* present);

/// Reads JSON text into the object, which is not reset first: where the text lacks a required field, the
/// object keeps what it held, unless `strict` makes a failure of it. If `present` is given, the text "null"
/// is told by false, and resets the object; otherwise it fails, as any text does that is no object. Failures
/// are those of `Deserializer`, and leave the object half read.
void DeserializeObject(ObjectIf& object, const std::string& text, bool* present, bool strict);

}  // namespace Ombry::ObjectMapping
