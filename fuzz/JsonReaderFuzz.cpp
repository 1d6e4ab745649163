// Invariant: any text either reads, or fails with a std::runtime_error that begins "ERROR: " and ends with
// the whole text, or with the std::range_error of a third element in a pair. What was read writes as a text
// that reads back strictly and is the same when it is written again; only the double may move, by the last
// digits, since the reader keeps the library's normal precision. An infinity, which the library makes of some
// numbers, has no text and is not written.
//
// The first byte of the input chooses whether the reader is strict; the text is the rest.

#include "ObjectMapping/ListArray.h"
#include "ObjectMapping/MapArray.h"
#include "ObjectMapping/Serialization.h"
#include "ObjectMapping/VectorArray.h"
#include "fuzz/Require.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

using namespace Ombry::ObjectMapping;
using Ombry::Fuzz::Require;

namespace {

struct Item : ObjectIf {
    void Map(MapperIf& mapper) override { mapper.Field("s", text, nullptr); }
    void Reset() override { text.clear(); }

    std::string text;
};

/// One field of each kind; optional are those whose flag stands beside them.
struct Record : ObjectIf {
    void Map(MapperIf& mapper) override {
        ListArray strings(list);
        ListArray sparseStrings(sparse, true);
        VectorArray numbers(vector);
        MapArray roles(map);
        ListArray objects(items);
        mapper.Field("w", wide, nullptr);
        mapper.Field("s", text, nullptr);
        mapper.Field("d", real, nullptr);
        mapper.Field("U", ull, nullptr);
        mapper.Field("L", ll, nullptr);
        mapper.Field("ul", ul, nullptr);
        mapper.Field("l", l, nullptr);
        mapper.Field("u", ui, nullptr);
        mapper.Field("i", i, nullptr);
        mapper.Field("us", us, nullptr);
        mapper.Field("h", s, nullptr);
        mapper.Field("b", b, nullptr);
        mapper.Field("a", strings, nullptr);
        mapper.Field("p", sparseStrings, nullptr);
        mapper.Field("v", numbers, nullptr);
        mapper.Field("m", roles, nullptr);
        mapper.Field("r", objects, &hasItems);
        mapper.Field("c", item, &hasItem);
        mapper.Field("o", optionalText, &hasText);
        mapper.Field("n", optionalNumber, &hasNumber);
    }
    void Reset() override { *this = Record(); }

    std::wstring wide;
    std::string text, optionalText;
    double real = 0;
    unsigned long long ull = 0;
    long long ll = 0;
    unsigned long ul = 0;
    long l = 0;
    unsigned int ui = 0;
    int i = 0, optionalNumber = 0;
    unsigned short us = 0;
    short s = 0;
    bool b = false, hasItems = false, hasItem = false, hasText = false, hasNumber = false;
    std::list<std::string> list, sparse;
    std::vector<int> vector;
    std::map<std::string, std::list<std::string>> map;
    std::list<Item> items;
    Item item;
};

/// False if the text was refused in one of the ways in which it may be.
bool Read(Record& record, const std::string& text, bool strict) {
    try {
        DeserializeObject(record, text, nullptr, strict);
        return true;
    } catch (const std::range_error& error) {
        Require(error.what() == std::string("Attempted to insert more than two elements into a pair."));
    } catch (const std::runtime_error& error) {
        const std::string message = error.what();
        Require(message.starts_with("ERROR: "));
        const bool whole = text.find('\0') == std::string::npos;
        Require(!whole || message.ends_with(" serialization_='" + text + "'"));
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const bool strict = (data[0] & 1) != 0;
    Record record;
    if (!Read(record, std::string(reinterpret_cast<const char*>(data) + 1, size - 1), strict)) return 0;

    if (std::isinf(record.real)) record.real = 0;
    const std::string first = SerializeObject(record, nullptr);
    Record copy;
    Require(Read(copy, first, true));
    Require(std::abs(record.real - copy.real) <= std::abs(record.real) * 1e-14);
    copy.real = record.real;
    Require(SerializeObject(copy, nullptr) == first);
    return 0;
}
