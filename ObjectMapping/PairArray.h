#pragma once

#include "ObjectMapping/ListArray.h"
#include "ObjectMapping/MapperIf.h"

#include <list>
#include <stdexcept>
#include <utility>

namespace Ombry::ObjectMapping {

/// A pair as an array of two elements; a member that is a list is an array within it. The pair is not owned.
/// Text with fewer elements leaves the rest of the pair as it was; a third element throws `std::range_error`.
template <class A, class B>
class PairArray : public ArrayIf {
public:
    /// `pair` outlives the adaptor.
    explicit PairArray(std::pair<A, B>& pair) : pair(&pair) {}

    bool Next(MapperIf& mapper) override {
        if (index == 0)
            MapMember(mapper, pair->first);
        else if (index == 1)
            MapMember(mapper, pair->second);
        else
            return false;
        ++index;
        return true;
    }

    /// Starts over; the members keep their content until they are read again.
    void Clear() override { index = 0; }

    /// The members exist already, so reading the next one is the same step as writing it.
    void Append(MapperIf& mapper) override {
        if (!Next(mapper)) throw std::range_error("Attempted to insert more than two elements into a pair.");
    }

private:
    template <class T>
    static void MapMember(MapperIf& mapper, T& member) {
        mapper.Field(nullptr, member, nullptr);
    }

    template <class T, class Alloc>
    static void MapMember(MapperIf& mapper, std::list<T, Alloc>& member) {
        ListArray<T, Alloc> array(member);
        mapper.Field(nullptr, array, nullptr);
    }

    std::pair<A, B>* pair;
    int index = 0;
};

}  // namespace Ombry::ObjectMapping
