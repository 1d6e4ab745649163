#pragma once

#include "ObjectMapping/MapperIf.h"
#include "ObjectMapping/PairArray.h"

#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace Ombry::ObjectMapping {

/// A map as an array of two-element arrays, key first: `[[key, value], ...]`, in the order of the keys. It is
/// never a JSON object: that is the form in which role sets are given on the command line. The map is not
/// owned. Of a key that the text repeats, the value read first stays.
template <class K, class V, class Compare = std::less<K>, class Alloc = std::allocator<std::pair<const K, V>>>
class MapArray : public ArrayIf {
public:
    /// `map` outlives the adaptor.
    explicit MapArray(std::map<K, V, Compare, Alloc>& map) : map(&map), cursor(map.begin()) {}

    bool Next(MapperIf& mapper) override {
        if (cursor == map->end()) return false;
        std::pair<K, V> entry(*cursor);
        PairArray<K, V> array(entry);
        mapper.Field(nullptr, array, nullptr);
        ++cursor;
        return true;
    }

    void Clear() override { map->clear(); }

    void Append(MapperIf& mapper) override {
        std::pair<K, V> entry;
        PairArray<K, V> array(entry);
        mapper.Field(nullptr, array, nullptr);
        map->insert(std::move(entry));
    }

private:
    std::map<K, V, Compare, Alloc>* map;
    typename std::map<K, V, Compare, Alloc>::iterator cursor;
};

}  // namespace Ombry::ObjectMapping
