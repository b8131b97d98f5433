// Conversion between UTF-8 and UTF-16.
#include "platform.h"

#include <climits>
#include <cstddef>

namespace {

constexpr char32_t kReplacement = 0xFFFD;

template <typename Unit>
struct Source {
    const Unit* next;
    const Unit* end;

    Source(const Unit* from, int length)
        : next(from)
        , end(from + (length < 0 ? std::char_traits<Unit>::length(from) + 1 : static_cast<std::size_t>(length))) {}
};

// Counts every unit and keeps those that fit.
template <typename Unit>
class Output {
public:
    Output(Unit* to, int size)
        : to_(to)
        , size_(static_cast<std::size_t>(size)) {}

    void put(char32_t unit) {
        if (count_ < size_)
            to_[count_] = static_cast<Unit>(unit);
        ++count_;
    }
    int result() const { return count_ > INT_MAX || (size_ != 0 && count_ > size_) ? 0 : static_cast<int>(count_); }

private:
    Unit* to_;
    std::size_t size_;
    std::size_t count_ = 0;
};

// The bytes that may follow a lead byte: how many, and the range of the first, which keeps out overlong forms,
// surrogates and what lies beyond U+10FFFF.
struct Trail {
    int count;
    unsigned char low;
    unsigned char high;
};

Trail trailOf(unsigned char lead) {
    if (lead >= 0xC2 && lead <= 0xDF)
        return {1, 0x80, 0xBF};
    if (lead >= 0xE0 && lead <= 0xEF)
        return {2, static_cast<unsigned char>(lead == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(lead == 0xED ? 0x9F : 0xBF)};
    if (lead >= 0xF0 && lead <= 0xF4)
        return {3, static_cast<unsigned char>(lead == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(lead == 0xF4 ? 0x8F : 0xBF)};
    return {0, 0, 0};
}

// A sequence that breaks off is replaced whole; the byte that broke it is read again. A second byte that makes the
// sequence overlong, a surrogate or too large goes with the first, as on Windows.
char32_t decode(Source<char>& source) {
    const auto lead = static_cast<unsigned char>(*source.next++);
    if (lead < 0x80)
        return lead;
    Trail trail = trailOf(lead);
    if (trail.count == 0)
        return kReplacement;
    char32_t character = lead & (0x3Fu >> trail.count);
    for (; trail.count > 0; --trail.count) {
        if (source.next == source.end)
            return kReplacement;
        const auto byte = static_cast<unsigned char>(*source.next);
        if (byte < 0x80 || byte > 0xBF)
            return kReplacement;
        ++source.next;
        if (byte < trail.low || byte > trail.high)
            return kReplacement;
        character = (character << 6) | (byte & 0x3Fu);
        trail.low = 0x80;
        trail.high = 0xBF;
    }
    return character;
}

char32_t decode(Source<WCHAR>& source) {
    const char32_t unit = *source.next++;
    if (unit < 0xD800 || unit > 0xDFFF)
        return unit;
    if (unit > 0xDBFF || source.next == source.end || *source.next < 0xDC00 || *source.next > 0xDFFF)
        return kReplacement;
    return 0x10000 + ((unit - 0xD800) << 10) + (static_cast<char32_t>(*source.next++) - 0xDC00);
}

void encode(char32_t character, Output<WCHAR>& output) {
    if (character < 0x10000) {
        output.put(character);
    } else {
        output.put(0xD800 + ((character - 0x10000) >> 10));
        output.put(0xDC00 + ((character - 0x10000) & 0x3FF));
    }
}

void encode(char32_t character, Output<char>& output) {
    if (character < 0x80) {
        output.put(character);
        return;
    }
    if (character < 0x800) {
        output.put(0xC0 | (character >> 6));
    } else {
        if (character < 0x10000) {
            output.put(0xE0 | (character >> 12));
        } else {
            output.put(0xF0 | (character >> 18));
            output.put(0x80 | ((character >> 12) & 0x3F));
        }
        output.put(0x80 | ((character >> 6) & 0x3F));
    }
    output.put(0x80 | (character & 0x3F));
}

template <typename From, typename To>
int convert(UINT codePage, DWORD flags, const From* from, int fromLength, To* to, int toSize) {
    if (codePage != CP_UTF8 || flags != 0 || from == nullptr || toSize < 0 || (toSize > 0 && to == nullptr))
        return 0;
    Source<From> source(from, fromLength);
    Output<To> output(to, toSize);
    while (source.next != source.end)
        encode(decode(source), output);
    return output.result();
}

} // namespace

int MultiByteToWideChar(UINT codePage, DWORD flags, const char* from, int fromLength, WCHAR* to, int toSize) {
    return convert(codePage, flags, from, fromLength, to, toSize);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, const WCHAR* from, int fromLength, char* to, int toSize,
                        const char* defaultChar, BOOL* usedDefaultChar) {
    // UTF-8 has every character, so Windows refuses a default one.
    if (defaultChar != nullptr || usedDefaultChar != nullptr)
        return 0;
    return convert(codePage, flags, from, fromLength, to, toSize);
}
