// Helpers of the image-file tests: bitmaps with known pixels read and written
// through the pixel store, a leak guard, and independent decoders (libpng's
// simplified API, libjpeg's own decompressor from memory) that the files of
// the library are checked against.
#pragma once

#include <gtest/gtest.h>

#include "imagefiles.h"
#include "testsupport.h"
#include "tovce.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace filestest {

constexpr DWORD kDepths[] = {1, 4, 8};
constexpr LONG kWidths[] = {1, 7, 8, 9, 31, 32, 33};

inline std::u16string Wide(const std::string& s) { return tovtest::W(s); }

// Row length of the pixel store, worked out here rather than by the library.
inline LONG Stride(LONG width, DWORD bits) { return ((width * LONG(bits) + 31) / 32) * 4; }

// Picture row y (0 at the top) of the bottom-up store.
inline BYTE* StoreRow(HDIB h, LONG y) {
    const BITMAPINFOHEADER& hdr = h->ds.dsBmih;
    return h->pBits + size_t(hdr.biHeight - 1 - y) * size_t(Stride(hdr.biWidth, hdr.biBitCount));
}

inline DWORD StorePixel(HDIB h, LONG x, LONG y) {
    const BYTE* row = StoreRow(h, y);
    switch (h->ds.dsBmih.biBitCount) {
    case 8: return row[x];
    case 4: return (x & 1) ? (row[x / 2] & 0x0F) : (row[x / 2] >> 4);
    default: return (row[x / 8] >> (7 - x % 8)) & 1;
    }
}

inline void StoreSetPixel(HDIB h, LONG x, LONG y, DWORD v) {
    BYTE* row = StoreRow(h, y);
    switch (h->ds.dsBmih.biBitCount) {
    case 8: row[x] = BYTE(v); break;
    case 4:
        if (x & 1) row[x / 2] = BYTE((row[x / 2] & 0xF0) | (v & 15));
        else row[x / 2] = BYTE((row[x / 2] & 0x0F) | ((v & 15) << 4));
        break;
    default: row[x / 8] = BYTE((row[x / 8] & ~(0x80 >> (x % 8))) | ((v & 1) << (7 - x % 8)));
    }
}

// Deterministic pixel value of (x, y) within the range of a depth.
inline DWORD Pattern(LONG x, LONG y, DWORD bits, DWORD seed = 0) {
    uint32_t v = uint32_t(x) * 2654435761u ^ (uint32_t(y) + seed) * 40503u;
    v ^= v >> 13;
    return v & ((1u << bits) - 1);
}

// A smooth picture, as a camera would give it: JPEG keeps it closely.
inline DWORD Smooth(LONG x, LONG y) { return DWORD((x * 3 + y * 2) % 256); }

// A grey bitmap filled with Pattern; fails the test when it cannot be made.
HDIB MakePatterned(LONG width, LONG height, DWORD bits, DWORD seed = 0);
std::vector<BYTE> StoreBytes(HDIB h);

// The platform's blocks and objects, and the live records, are the same at
// the end of a scope as at its start.
class LeakGuard {
public:
    LeakGuard() : before_(PlatLiveObjects()), count_(DibLiveCount()) {}
    ~LeakGuard() {
        EXPECT_EQ(PlatLiveObjects(), before_) << "platform objects leaked";
        EXPECT_EQ(DibLiveCount(), count_) << "records leaked";
    }
private:
    long before_;
    LONG count_;
};

void WriteBytes(const std::string& path, const std::string& bytes);
std::vector<std::string> FilesIn(const std::string& dir, const std::string& suffix);
std::string BaseName(const std::string& path);

// ---- PNG ----------------------------------------------------------------------
struct PngHeader {
    bool parsed = false;
    uint32_t width = 0, height = 0;
    int depth = 0, colorType = 0, interlace = 0;
    std::vector<std::array<BYTE, 3>> palette;  // from PLTE
};
// IHDR and PLTE, read by hand from the chunk layout.
PngHeader ParsePng(const std::string& bytes);

struct Decoded {
    bool ok = false;
    uint32_t width = 0, height = 0;
    std::vector<BYTE> samples;  // rows top first, no padding
    std::string message;
};
// libpng's simplified reader, given the file with its ancillary chunks left
// out (no gamma, colour space or transparency to apply), into the format
// given (PNG_FORMAT_GRAY or PNG_FORMAT_RGB).
Decoded OraclePng(const std::string& bytes, uint32_t format);

// ---- JPEG ---------------------------------------------------------------------
struct DecodedJpeg : Decoded {
    bool endedEarly = false;  // libjpeg warned that the data ran out
    int components = 0;
};
// libjpeg from memory, grey output.
DecodedJpeg OracleJpeg(const std::string& bytes);

}  // namespace filestest
