// UTF-16 formatting, numbers and UTF-8 conversion of the platform layer.
// (The cut at the buffer's end: the trace's long lines; comparing and
// writing numbers back: the profile chain tests.)
#include <gtest/gtest.h>
#include <tovrel/platform.h>

#include "testsupport.h"

#include <climits>

using tovtest::N;

namespace {

std::string Fmt(const WCHAR* format, ...) {
    WCHAR buf[256];
    va_list args;
    va_start(args, format);
    _vsnwprintf(buf, 256, format, args);
    va_end(args);
    return N(buf);
}

TEST(WideFormat, ConversionsMatchNarrowPrintf) {
    EXPECT_EQ(Fmt(u"%d|%5d|%-5d|%05d", -42, 42, 42, 42), "-42|   42|42   |00042");
    EXPECT_EQ(Fmt(u"%u %x %X %o", 4294967295u, 255u, 255u, 8u), "4294967295 ff FF 10");
    EXPECT_EQ(Fmt(u"%lld %llu %I64d", LLONG_MIN, ULLONG_MAX, LLONG_MIN), "-9223372036854775808 18446744073709551615 -9223372036854775808");
    EXPECT_EQ(Fmt(u"%ld %lu %zu", -5L, 5UL, size_t(7)), "-5 5 7");
    EXPECT_EQ(Fmt(u"%hd %hhu", 70000, 300), "4464 44");
    EXPECT_EQ(Fmt(u"%.2f %8.3f %e", 2.5, -1.0 / 3, 1e10), "2.50   -0.333 1.000000e+10");
    EXPECT_EQ(Fmt(u"%s|%5s|%-5s|%.2s|%4.9s", u"ab", u"ab", u"ab", u"abc", u"ab"), "ab|   ab|ab   |ab|  ab");
    EXPECT_EQ(Fmt(u"%hs %S %.2hs|%4.9hs", "narrow", "also", "abc", "ab"), "narrow also ab|  ab");  // a precision past the end
    EXPECT_EQ(Fmt(u"%c%c %%", u'x', 0x20AC), "x\xE2\x82\xAC %");
    EXPECT_EQ(Fmt(u"%s", static_cast<const WCHAR*>(nullptr)), "(null)");
    EXPECT_EQ(Fmt(u"%*d|%.*f", 4, 7, 1, 2.25), "   7|2.2");
    EXPECT_EQ(Fmt(u"50%"), "50%");
}

// Numbers in profile files: blanks before them, text after them, saturated
// at the ends of a LONG.
TEST(WideText, NumbersSkipBlanksAndSaturate) {
    struct { const char16_t* text; long value; } longs[] = {
        {u"  42xyz", 42}, {u"\t\n\r 5", 5}, {u"\x0e" u"5", 0}, {u"+8", 8}, {u"99999999999", 2147483647L},
        {u"-99999999999", -2147483648L},
    };
    for (const auto& c : longs) EXPECT_EQ(_wtol(c.text), c.value) << N(c.text);
    WCHAR a[40], b[40], c[40];  // radixes up to 36; any other writes decimal
    EXPECT_EQ(N(_itow(35, a, 36)) + " " + N(_itow(35, b, 37)) + " " + N(_itow(-5, c, 10)), "z 35 -5");
}

TEST(WideText, Utf8RoundTripAndBounds) {
    const std::string samples[] = {"plain", "gr\xC3\xBC\xC3\x9F" "e", "\xE2\x82\xAC", "\xF0\x9F\x98\x80 pair", "",
                                   // the ends of each length, and a four-byte lead with its low bits set
                                   "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF1\x80\x80\x80\xF4\x8F\xBF\xBF"};
    for (const auto& s : samples) {
        WCHAR wide[64];
        ASSERT_NE(PlatUtf8ToWide(s.c_str(), wide, 64), static_cast<size_t>(-1));
        char back[64];
        ASSERT_NE(PlatWideToUtf8(wide, back, 64), static_cast<size_t>(-1));
        EXPECT_EQ(std::string(back), s);
    }
    char small[4] = {'#', '#', '#', '#'};
    EXPECT_EQ(PlatWideToUtf8(u"\u20AC\u20AC", small, 4), static_cast<size_t>(-1));
    EXPECT_EQ(small[3], 0);
    // Surrogates at the ends of their ranges: a pair is one code point, a lone one U+FFFD.
    const struct {
        WCHAR wide[3];
        const char* utf8;
    } ends[] = {{{0xD800, 0xDC00, 0}, "\xF0\x90\x80\x80"}, {{0xDBFF, 0xDFFF, 0}, "\xF4\x8F\xBF\xBF"},
                {{0xD800, u'a', 0}, "\xEF\xBF\xBD" "a"}, {{0xDFFF, u'a', 0}, "\xEF\xBF\xBD" "a"}};
    for (const auto& e : ends) {
        char out[16];
        PlatWideToUtf8(e.wide, out, sizeof out);
        EXPECT_EQ(std::string(out), e.utf8);
    }
}

}  // namespace
