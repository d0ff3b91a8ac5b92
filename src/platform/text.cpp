// UTF-16 text: printf-style formatting, comparison, number conversion and
// the UTF-8 conversions used for file names and the log file.
#include <tovrel/platform.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// Appends to a bounded buffer, remembering whether anything was cut.
struct Out {
    WCHAR* buf;
    size_t cap;  // characters including the terminator
    size_t len = 0;
    bool cut = false;
    void Put(WCHAR c) {
        if (cap && len + 1 < cap) buf[len++] = c;
        else cut = true;
    }
    void PutN(WCHAR c, int n) {
        for (int i = 0; i < n; ++i) Put(c);
    }
    void Ascii(const char* s) {
        while (*s) Put(static_cast<unsigned char>(*s++));
    }
};

// The flag characters of one conversion, each at most once.
struct Flags {
    char text[8] = "";
    size_t n = 0;
    bool Has(char c) const { return std::memchr(text, c, n) != nullptr; }
    void Add(char c) {
        if (!Has(c) && n + 1 < sizeof text) text[n++] = c;
    }
};

size_t Length16(const WCHAR* s) {
    size_t n = 0;
    while (s[n]) ++n;
    return n;
}

// Appends UTF-8 bytes as UTF-16 (invalid bytes become U+FFFD).
void PutUtf8(Out& out, const char* s, size_t n) {
    size_t i = 0;
    while (i < n) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        uint32_t cp = 0xFFFD;
        size_t len = 1;
        if (c < 0x80) cp = c;
        else if ((c >> 5) == 6 && i + 1 < n) { cp = ((c & 0x1F) << 6) | (s[i + 1] & 0x3F); len = 2; }
        else if ((c >> 4) == 14 && i + 2 < n) { cp = ((c & 0x0F) << 12) | ((s[i + 1] & 0x3F) << 6) | (s[i + 2] & 0x3F); len = 3; }
        else if ((c >> 3) == 30 && i + 3 < n) { cp = ((c & 0x07) << 18) | ((s[i + 1] & 0x3F) << 12) | ((s[i + 2] & 0x3F) << 6) | (s[i + 3] & 0x3F); len = 4; }
        i += len;
        if (cp >= 0x10000 && cp <= 0x10FFFF) {
            cp -= 0x10000;
            out.Put(static_cast<WCHAR>(0xD800 + (cp >> 10)));
            out.Put(static_cast<WCHAR>(0xDC00 + (cp & 0x3FF)));
        } else {
            out.Put(static_cast<WCHAR>(cp > 0xFFFF ? 0xFFFD : cp));
        }
    }
}

}  // namespace

extern "C" {

int _vsnwprintf(WCHAR* buffer, size_t count, const WCHAR* format, va_list args) {
    Out out{buffer, count};
    if (!format) format = u"";
    for (const WCHAR* f = format; *f; ++f) {
        if (*f != u'%') {
            out.Put(*f);
            continue;
        }
        const WCHAR* start = f++;
        // Each flag counts once, so the set fits a fixed buffer: formatting
        // never allocates, and works when memory is short.
        Flags flags;
        while (*f == u'-' || *f == u'+' || *f == u' ' || *f == u'#' || *f == u'0') flags.Add(char(*f++));
        int width = -1, precision = -1;
        if (*f == u'*') {
            width = va_arg(args, int);
            if (width < 0) { flags.Add('-'); width = -width; }
            ++f;
        } else {
            for (width = 0; *f >= u'0' && *f <= u'9'; ++f) width = width * 10 + (*f - u'0');
        }
        if (*f == u'.') {
            ++f;
            if (*f == u'*') {
                precision = va_arg(args, int);
                ++f;
            } else {
                for (precision = 0; *f >= u'0' && *f <= u'9'; ++f) precision = precision * 10 + (*f - u'0');
            }
        }
        // Length: h, hh, l, ll, z, j, t, and I64 as on the device.
        int longs = 0, shorts = 0;
        bool size = false;
        for (;; ++f) {
            if (*f == u'l') ++longs;
            else if (*f == u'h') ++shorts;
            else if (*f == u'z' || *f == u'j' || *f == u't') size = true;
            else if (*f == u'I' && f[1] == u'6' && f[2] == u'4') { longs = 2; f += 2; }
            else break;
        }
        WCHAR conv = *f;
        if (!conv) { // a lone '%' at the end is written as it stands
            for (const WCHAR* p = start; p < f; ++p) out.Put(*p);
            break;
        }
        bool left = flags.Has('-');
        char conversion[64], text[512];
        auto numberSpec = [&](const char* lengthMod, char c) {
            char widthText[16] = "", precisionText[16] = "";
            if (width > 0) std::snprintf(widthText, sizeof widthText, "%d", width);
            if (precision >= 0) std::snprintf(precisionText, sizeof precisionText, ".%d", precision);
            std::snprintf(conversion, sizeof conversion, "%%%s%s%s%s%c", flags.text, widthText, precisionText,
                          lengthMod, c);
        };
        switch (conv) {
        case u'd': case u'i': case u'u': case u'x': case u'X': case u'o': {
            bool isSigned = conv == u'd' || conv == u'i';
            char c = static_cast<char>(conv);
            if (size || longs >= 1) {
                numberSpec("ll", c);
                long long v = size ? static_cast<long long>(va_arg(args, size_t))
                              : longs >= 2 ? va_arg(args, long long)
                                           : static_cast<long long>(va_arg(args, long));
                if (!isSigned && !size && longs == 1) v = static_cast<long long>(static_cast<unsigned long>(v));
                std::snprintf(text, sizeof text, conversion, v);
            } else {
                numberSpec("", c);
                int v = va_arg(args, int);
                if (shorts == 1) v = isSigned ? static_cast<short>(v) : static_cast<unsigned short>(v);
                if (shorts >= 2) v = isSigned ? static_cast<signed char>(v) : static_cast<unsigned char>(v);
                std::snprintf(text, sizeof text, conversion, v);
            }
            out.Ascii(text);
            break;
        }
        case u'f': case u'F': case u'e': case u'E': case u'g': case u'G': case u'a': case u'A': {
            numberSpec("", static_cast<char>(conv));
            std::snprintf(text, sizeof text, conversion, va_arg(args, double));
            out.Ascii(text);
            break;
        }
        case u'p': {
            std::snprintf(text, sizeof text, "%p", va_arg(args, void*));
            int pad = width - static_cast<int>(std::strlen(text));
            if (!left) out.PutN(u' ', pad);
            out.Ascii(text);
            if (left) out.PutN(u' ', pad);
            break;
        }
        case u'c': case u'C': {
            int v = va_arg(args, int);
            WCHAR c = (conv == u'C' || shorts) ? static_cast<WCHAR>(static_cast<unsigned char>(v)) : static_cast<WCHAR>(v);
            if (!left) out.PutN(u' ', width - 1);
            out.Put(c);
            if (left) out.PutN(u' ', width - 1);
            break;
        }
        case u's': case u'S': {
            // %s is UTF-16 as in the wide functions of the device; %hs and %S narrow.
            bool narrow = conv == u'S' || shorts;
            if (narrow) {
                const char* s = va_arg(args, const char*);
                if (!s) s = "(null)";
                size_t n = std::strlen(s);
                if (precision >= 0 && static_cast<size_t>(precision) < n) n = precision;
                int pad = width - static_cast<int>(n);
                if (!left) out.PutN(u' ', pad);
                PutUtf8(out, s, n);
                if (left) out.PutN(u' ', pad);
            } else {
                const WCHAR* s = va_arg(args, const WCHAR*);
                if (!s) s = u"(null)";
                size_t n = Length16(s);
                if (precision >= 0 && static_cast<size_t>(precision) < n) n = precision;
                int pad = width - static_cast<int>(n);
                if (!left) out.PutN(u' ', pad);
                for (size_t i = 0; i < n; ++i) out.Put(s[i]);
                if (left) out.PutN(u' ', pad);
            }
            break;
        }
        case u'%':
            out.Put(u'%');
            break;
        default:  // unknown conversions are written as they stand
            for (const WCHAR* p = start; p <= f; ++p) out.Put(*p);
            break;
        }
    }
    if (count) buffer[out.len < count ? out.len : count - 1] = 0;
    return out.cut ? -1 : static_cast<int>(out.len);
}

int _snwprintf(WCHAR* buffer, size_t count, const WCHAR* format, ...) {
    va_list args;
    va_start(args, format);
    int n = _vsnwprintf(buffer, count, format, args);
    va_end(args);
    return n;
}

size_t PlatWideLength(const WCHAR* text) { return text ? Length16(text) : 0; }

static WCHAR Lower(WCHAR c) {
    if (c >= u'A' && c <= u'Z') return static_cast<WCHAR>(c + 32);
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return static_cast<WCHAR>(c + 32);
    return c;
}

int _wcsicmp(const WCHAR* a, const WCHAR* b) {
    for (;; ++a, ++b) {
        WCHAR ca = Lower(*a), cb = Lower(*b);
        if (ca != cb || !ca) return static_cast<int>(ca) - static_cast<int>(cb);
    }
}

static bool IsSpace16(WCHAR c) { return c == u' ' || (c >= 9 && c <= 13); }

long _wtol(const WCHAR* text) {
    if (!text) return 0;
    while (IsSpace16(*text)) ++text;
    bool negative = false;
    if (*text == u'-' || *text == u'+') negative = *text++ == u'-';
    unsigned long long v = 0;
    for (; *text >= u'0' && *text <= u'9'; ++text) {
        v = v * 10 + static_cast<unsigned>(*text - u'0');
        if (v > 0x80000000ull) v = 0x80000000ull;  // saturate instead of overflowing
    }
    if (!negative && v > 0x7FFFFFFFull) v = 0x7FFFFFFFull;
    long long r = negative ? -static_cast<long long>(v) : static_cast<long long>(v);
    return static_cast<long>(r);
}

WCHAR* _itow(int value, WCHAR* buffer, int radix) {
    if (!buffer) return buffer;
    if (radix < 2 || radix > 36) radix = 10;
    char tmp[40];
    unsigned int u = static_cast<unsigned int>(value);
    bool negative = radix == 10 && value < 0;
    if (negative) u = 0u - u;
    int n = 0;
    do {
        unsigned d = u % radix;
        tmp[n++] = static_cast<char>(d < 10 ? '0' + d : 'a' + d - 10);
        u /= radix;
    } while (u);
    WCHAR* p = buffer;
    if (negative) *p++ = u'-';
    while (n) *p++ = static_cast<unsigned char>(tmp[--n]);
    *p = 0;
    return buffer;
}

double PlatWideToDouble(const WCHAR* text, WCHAR** end) {
    if (!text) {
        if (end) *end = nullptr;
        return 0.0;
    }
    // Numbers are ASCII: narrow the leading run that can belong to one.
    char narrow[128];
    size_t n = 0;
    const WCHAR* p = text;
    while (n + 1 < sizeof narrow && *p && *p < 0x80) narrow[n++] = static_cast<char>(*p++);
    narrow[n] = 0;
    char* stop = nullptr;
    double v = std::strtod(narrow, &stop);
    if (end) *end = const_cast<WCHAR*>(text + (stop - narrow));
    return v;
}

size_t PlatWideToUtf8(const WCHAR* text, char* out, size_t cap) {
    if (!out || cap == 0) return static_cast<size_t>(-1);
    size_t len = 0;
    if (!text) {
        out[0] = 0;
        return 0;
    }
    for (size_t i = 0; text[i]; ++i) {
        uint32_t cp = text[i];
        if (cp >= 0xD800 && cp <= 0xDBFF && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (cp >= 0xD800 && cp <= 0xDFFF) {
            cp = 0xFFFD;
        }
        char enc[4];
        size_t n;
        if (cp < 0x80) { enc[0] = static_cast<char>(cp); n = 1; }
        else if (cp < 0x800) { enc[0] = static_cast<char>(0xC0 | (cp >> 6)); enc[1] = static_cast<char>(0x80 | (cp & 0x3F)); n = 2; }
        else if (cp < 0x10000) { enc[0] = static_cast<char>(0xE0 | (cp >> 12)); enc[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F)); enc[2] = static_cast<char>(0x80 | (cp & 0x3F)); n = 3; }
        else { enc[0] = static_cast<char>(0xF0 | (cp >> 18)); enc[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F)); enc[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F)); enc[3] = static_cast<char>(0x80 | (cp & 0x3F)); n = 4; }
        if (len + n + 1 > cap) {
            out[len] = 0;
            return static_cast<size_t>(-1);
        }
        std::memcpy(out + len, enc, n);
        len += n;
    }
    out[len] = 0;
    return len;
}

size_t PlatUtf8ToWide(const char* text, WCHAR* out, size_t cap) {
    if (!out || cap == 0) return static_cast<size_t>(-1);
    if (!text) {
        out[0] = 0;
        return 0;
    }
    Out o{out, cap};
    PutUtf8(o, text, std::strlen(text));
    out[o.len] = 0;
    return o.cut ? static_cast<size_t>(-1) : o.len;
}

}  // extern "C"
