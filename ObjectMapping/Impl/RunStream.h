#pragma once

#include "Platform/LongExponents.h"
#include "rapidjson/encodings.h"
#include "rapidjson/stream.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace Ombry::ObjectMapping::Impl {

/// Where a value was about to be read stood a number with an exponent that the library does not bear; or one
/// began a piece of a string.
struct LongExponent {};

/// A text that RapidJSON reads, up to its first NUL, which may be the one behind its end. The text outlives
/// it.
class RunStream : public rapidjson::StringStream {
public:
    explicit RunStream(const std::string& text)
        : rapidjson::StringStream(text.c_str()), end(text.c_str() + text.size()) {}

    /// The place, which the library asks for ahead of each number; ahead of pieces of strings, too, and where
    /// it fails. Throws `LongExponent`.
    std::size_t Tell() const {
        if (*src_ <= '9') LookAtNumber(src_);  // no letter
        return static_cast<std::size_t>(src_ - head_);
    }

    /// Goes past all from here on that stands in a string as itself, and gives that.
    std::string_view TakeRun() {
        const char* const first = src_;
        while (end - src_ >= 8) {
            const std::uint64_t ends = EndsOfRuns(Word(src_));
            if (ends == 0) {
                src_ += 8;
                continue;
            }
            if constexpr (std::endian::native != std::endian::little) break;
            src_ += std::countr_zero(ends) / 8;  // behind the first end there may be some that are none
            return {first, static_cast<std::size_t>(src_ - first)};
        }
        while (src_ != end && !EndsRun(*src_))
            ++src_;
        return {first, static_cast<std::size_t>(src_ - first)};
    }

private:
    static constexpr std::uint64_t Ones = 0x0101010101010101;

    // Apart from the road of all strings.
    [[gnu::noinline, gnu::cold]] static void LookAtNumber(const char* number) {
        if (Platform::HasLongExponent(number)) throw LongExponent();
    }

    static std::uint64_t Word(const char* bytes) {
        std::uint64_t word;
        std::memcpy(&word, bytes, sizeof word);
        return word;
    }
    // The highest bit of each byte of the word that is below the limit, which is at most 0x80; above the
    // lowest of them also of some that are not.
    static std::uint64_t Below(std::uint64_t word, std::uint64_t limit) {
        return (word - Ones * limit) & ~word & Ones * 0x80;
    }
    static std::uint64_t EndsOfRuns(std::uint64_t word) {
        return Below(word, 0x20) | Below(word ^ Ones * '"', 1) | Below(word ^ Ones * '\\', 1);
    }
    static bool EndsRun(char byte) {
        return byte == '"' || byte == '\\' || static_cast<unsigned char>(byte) < 0x20;
    }

    const char* end;
};

/// The UTF-8 of a `RunStream`: of what is between quotes RapidJSON has a run copied in the place of each
/// byte.
struct Utf8InRuns : rapidjson::UTF8<> {};

}  // namespace Ombry::ObjectMapping::Impl

namespace rapidjson {

template <>
struct StreamTraits<Ombry::ObjectMapping::Impl::RunStream> {
    enum { copyOptimization = 1 };
};

template <>
struct Transcoder<Ombry::ObjectMapping::Impl::Utf8InRuns, UTF8<>> : Transcoder<UTF8<>, UTF8<>> {
    template <class Output>
    static bool Transcode(Ombry::ObjectMapping::Impl::RunStream& text, Output& output) {
        const std::string_view run = text.TakeRun();
        std::memcpy(output.Push(static_cast<SizeType>(run.size())), run.data(), run.size());
        return true;
    }
};

}  // namespace rapidjson
