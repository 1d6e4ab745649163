#pragma once

#include "ObjectMapping/SequenceArray.h"

#include <list>
#include <memory>

namespace Ombry::ObjectMapping {

/// A list as an array, made on the stack for one call of `Field`. With `optionalElements` an element that
/// reads as null is dropped, without leaving a hole; otherwise it is a failure.
template <class T, class Alloc = std::allocator<T>>
class ListArray : public SequenceArray<std::list<T, Alloc>> {
public:
    /// `list` outlives the adaptor.
    explicit ListArray(std::list<T, Alloc>& list, bool optionalElements = false)
        : SequenceArray<std::list<T, Alloc>>(list, optionalElements) {}
};

}  // namespace Ombry::ObjectMapping
