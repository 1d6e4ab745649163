#pragma once

#include "ObjectMapping/SequenceArray.h"

#include <memory>
#include <vector>

namespace Ombry::ObjectMapping {

/// A vector as an array, made on the stack for one call of `Field`; `optionalElements` as in `ListArray`.
template <class T, class Alloc = std::allocator<T>>
class VectorArray : public SequenceArray<std::vector<T, Alloc>> {
public:
    /// `vector` outlives the adaptor.
    explicit VectorArray(std::vector<T, Alloc>& vector, bool optionalElements = false)
        : SequenceArray<std::vector<T, Alloc>>(vector, optionalElements) {}
};

}  // namespace Ombry::ObjectMapping
