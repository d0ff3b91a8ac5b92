#include "dibimages.h"

#include <algorithm>
#include <filesystem>
#include <random>

namespace fs = std::filesystem;

namespace tovtest {

BYTE* StoreRow(HDIB h, LONG y) {
    const BITMAPINFOHEADER& hdr = h->ds.dsBmih;
    return h->pBits + size_t(hdr.biHeight - 1 - y) * size_t(Stride(hdr.biWidth, hdr.biBitCount));
}

DWORD StorePixel(HDIB h, LONG x, LONG y) {
    const BYTE* row = StoreRow(h, y);
    switch (h->ds.dsBmih.biBitCount) {
    case 8: return row[x];
    case 4: return (x & 1) ? (row[x / 2] & 0x0F) : (row[x / 2] >> 4);
    default: return (row[x / 8] >> (7 - x % 8)) & 1;
    }
}

void StoreSetPixel(HDIB h, LONG x, LONG y, DWORD v) {
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

std::vector<BYTE> StoreBytes(HDIB h) {
    const BITMAPINFOHEADER& hdr = h->ds.dsBmih;
    size_t n = size_t(hdr.biHeight) * size_t(Stride(hdr.biWidth, hdr.biBitCount));
    return std::vector<BYTE>(h->pBits, h->pBits + n);
}

std::vector<DWORD> Pixels(HDIB h) {
    std::vector<DWORD> out;
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x) out.push_back(StorePixel(h, x, y));
    return out;
}

DWORD Pattern(LONG x, LONG y, DWORD bits, DWORD seed) {
    uint32_t v = uint32_t(x) * 2654435761u ^ (uint32_t(y) + seed) * 40503u;
    v ^= v >> 13;
    return v & ((1u << bits) - 1);
}

HDIB MakePatterned(LONG width, LONG height, DWORD bits, DWORD seed) {
    HDIB h = tovCreateHDIBExt(width, height, 0, bits);
    EXPECT_NE(h, nullptr);
    if (!h) return nullptr;
    for (LONG y = 0; y < height; ++y)
        for (LONG x = 0; x < width; ++x) StoreSetPixel(h, x, y, Pattern(x, y, bits, seed));
    return h;
}

HDIB MakeRandom(LONG width, LONG height, DWORD bits, uint32_t seed) {
    HDIB h = tovCreateHDIBExt(width, height, 0, bits);
    EXPECT_NE(h, nullptr);
    if (!h) return nullptr;
    std::mt19937 rng(seed);
    const size_t n = size_t(height) * size_t(Stride(width, bits));
    for (size_t i = 0; i < n; ++i) h->pBits[i] = BYTE(rng());
    return h;
}

std::vector<std::string> FilesIn(const std::string& dir, const std::string& suffix) {
    std::vector<std::string> files;
    for (const auto& entry : fs::directory_iterator(dir)) {
        std::string name = entry.path().string();
        if (name.size() >= suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
            files.push_back(name);
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string BaseName(const std::string& path) { return fs::path(path).filename().string(); }

}  // namespace tovtest
