#pragma once

#include "ObjectMapping/MapperIf.h"

#include <utility>

namespace Ombry::ObjectMapping {

/// What `ListArray` and `VectorArray` have in common. The container is not owned and outlives the adaptor.
/// The cursor belongs to `Next` alone: reading into the container leaves it dangling.
template <class Container>
class SequenceArray : public ArrayIf {
public:
    /// Hands on the element at the cursor; false at the end.
    bool Next(MapperIf& mapper) override {
        if (cursor == container->end()) return false;
        mapper.Field(nullptr, *cursor, nullptr);
        ++cursor;
        return true;
    }

    /// Empties the container.
    void Clear() override { container->clear(); }

    /// Reads one more element and appends it.
    void Append(MapperIf& mapper) override {
        typename Container::value_type element{};
        bool present = false;
        mapper.Field(nullptr, element, optionalElements ? &present : nullptr);
        if (optionalElements && !present) return;
        container->push_back(std::move(element));
    }

protected:
    /// `container` outlives the adaptor.
    SequenceArray(Container& container, bool optionalElements)
        : container(&container), cursor(container.begin()), optionalElements(optionalElements) {}

private:
    Container* container;
    typename Container::iterator cursor;
    bool optionalElements;
};

}  // namespace Ombry::ObjectMapping
