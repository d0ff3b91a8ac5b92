// UTF-16 formatting and text helpers of the platform layer.
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
    EXPECT_EQ(Fmt(u"%02d/%02d/%02d %02d:%02d:%02d", 1, 2, 3, 4, 5, 6), "01/02/03 04:05:06");
    EXPECT_EQ(Fmt(u"%u %x %X %o", 4294967295u, 255u, 255u, 8u), "4294967295 ff FF 10");
    EXPECT_EQ(Fmt(u"%lld %llu %I64d", LLONG_MIN, ULLONG_MAX, LLONG_MIN), "-9223372036854775808 18446744073709551615 -9223372036854775808");
    EXPECT_EQ(Fmt(u"%ld %lu %zu", -5L, 5UL, size_t(7)), "-5 5 7");
    EXPECT_EQ(Fmt(u"%hd %hhu", 70000, 300), "4464 44");
    EXPECT_EQ(Fmt(u"%.2f %8.3f %e", 2.5, -1.0 / 3, 1e10), "2.50   -0.333 1.000000e+10");
    EXPECT_EQ(Fmt(u"%s|%5s|%-5s|%.2s", u"ab", u"ab", u"ab", u"abc"), "ab|   ab|ab   |ab");
    EXPECT_EQ(Fmt(u"%hs %S", "narrow", "also"), "narrow also");
    EXPECT_EQ(Fmt(u"%c%c %%", u'x', 0x20AC), "x\xE2\x82\xAC %");
    EXPECT_EQ(Fmt(u"%s", static_cast<const WCHAR*>(nullptr)), "(null)");
    EXPECT_EQ(Fmt(u"%*d|%.*f", 4, 7, 1, 2.25), "   7|2.2");
    EXPECT_EQ(Fmt(u"50%"), "50%");
}

TEST(WideFormat, CutsAtCountAndTerminates) {
    WCHAR buf[8];
    for (auto& c : buf) c = u'#';
    EXPECT_EQ(_snwprintf(buf, 5, u"%s", u"abcdefgh"), -1);
    EXPECT_EQ(N(buf), "abcd");
    EXPECT_EQ(buf[5], u'#') << "wrote past count";
    EXPECT_EQ(_snwprintf(buf, 8, u"%d", 1234567), 7);
    EXPECT_EQ(N(buf), "1234567");
    EXPECT_EQ(_snwprintf(buf, 7, u"%d", 1234567), -1);
    EXPECT_EQ(_snwprintf(buf, 0, u"%d", 1), -1);
}

TEST(WideText, CompareAndNumbers) {
    EXPECT_EQ(_wcsicmp(u"Fixed Exposure", u"fIXED eXPOSURE"), 0);
    EXPECT_LT(_wcsicmp(u"abc", u"abd"), 0);
    EXPECT_GT(_wcsicmp(u"abcd", u"ABC"), 0);
    EXPECT_EQ(_wcsicmp(u"\u00C0\u00DE", u"\u00E0\u00FE"), 0);  // Latin-1 capitals, the last one too
    EXPECT_NE(_wcsicmp(u"\u00D7", u"\u00F7"), 0);                // times is no capital of divide
    struct { const char16_t* text; long value; } longs[] = {
        {u"  42xyz", 42}, {u"-17", -17}, {u"+8", 8}, {u"abc", 0}, {u"", 0},
        {u"99999999999", 2147483647L}, {u"-99999999999", -2147483648L}, {u"\t\n 5", 5},
    };
    for (const auto& c : longs) EXPECT_EQ(_wtol(c.text), c.value) << N(c.text);
    WCHAR buf[40];
    EXPECT_EQ(N(_itow(-1234, buf, 10)), "-1234");
    EXPECT_EQ(N(_itow(INT_MIN, buf, 10)), "-2147483648");
    EXPECT_EQ(N(_itow(255, buf, 16)), "ff");
    WCHAR* end = nullptr;
    const WCHAR* text = u" 2.50rest";
    EXPECT_DOUBLE_EQ(PlatWideToDouble(text, &end), 2.5);
    EXPECT_EQ(end, text + 5);
    EXPECT_DOUBLE_EQ(PlatWideToDouble(u"none", nullptr), 0.0);
}

TEST(WideText, Utf8RoundTripAndBounds) {
    const std::string samples[] = {"plain", "gr\xC3\xBC\xC3\x9F" "e", "\xE2\x82\xAC", "\xF0\x9F\x98\x80 pair", ""};
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
