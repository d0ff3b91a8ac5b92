// libFuzzer target: signature stroke records through tovSigDraw (into a
// small frame buffer) and tovSigSave (to a file of each format). The input
// is turned into a record that is consistent with its own counts, so any read
// past its end is the library's, not the harness's:
//   byte 0      mode: bit 0 save instead of draw, bits 1-2 format, bit 3
//               turn by 180 degrees, bit 4 a text line
//   byte 1      pen width - 4
//   bytes 2-5   page width and height, signed 16-bit each
//   then        strokes: a count byte and that many 8-byte points
#include "fuzzload.h"

#include <cstring>
#include <vector>

namespace {

constexpr int kBufferWidth = 64, kBufferHeight = 48;

int16_t Int16(const uint8_t* p) { return int16_t(uint16_t(p[0] | (p[1] << 8))); }

std::vector<BYTE> MakeRecord(const uint8_t* data, size_t size, LONG width, LONG height) {
    std::vector<BYTE> record(12);
    LONG strokes = 0;
    std::memcpy(record.data(), &width, 4);
    std::memcpy(record.data() + 4, &height, 4);
    while (size > 0) {
        DWORD count = data[0];
        ++data, --size;
        if (size_t(count) * 8 > size) count = DWORD(size / 8);
        const size_t at = record.size();
        record.resize(at + 4 + size_t(count) * 8);
        std::memcpy(record.data() + at, &count, 4);
        std::memcpy(record.data() + at + 4, data, size_t(count) * 8);
        data += size_t(count) * 8, size -= size_t(count) * 8;
        ++strokes;
    }
    std::memcpy(record.data() + 8, &strokes, 4);
    return record;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 6) return 0;
    const uint8_t mode = data[0];
    const LONG pen = LONG(data[1] % 16) - 4;
    // Pages stay small enough that each run is quick; sign and zero are kept.
    const LONG width = Int16(data + 2) % 1024, height = Int16(data + 4) % 1024;
    std::vector<BYTE> record = MakeRecord(data + 6, size - 6, width, height);
    const COLORREF colour = 0x000000;

    long before = PlatLiveObjects();
    if (!(mode & 1)) {
        std::vector<uint32_t> pixels(size_t(kBufferWidth) * kBufferHeight, 0xFFFFFF);
        HDC dc = PlatCreateBufferDC(pixels.data(), kBufferWidth, kBufferHeight, kBufferWidth * 4);
        if (dc) {
            tovSigDraw(dc, record.data(), colour, pen);
            DeleteDC(dc);
        }
    } else {
        static const char* const kExt[] = {"jpg", "png", "bmp"};
        const DWORD format = DWORD((mode >> 1) & 3) % 3;
        const std::string path = tovfuzz::ScratchDir() + "/sig." + kExt[format];
        const std::u16string wide = tovfuzz::Widen(path);
        tovSigSave(wide.c_str(), format, 75, record.data(), (mode & 16) ? u"Signed 1/2" : nullptr, (mode & 8) != 0,
                   colour, pen);
        unlink(path.c_str());
    }
    long after = PlatLiveObjects();
    if (after != before) {
        std::fprintf(stderr, "tovfuzz: %ld live objects before, %ld after\n", before, after);
        std::abort();
    }
    return 0;
}
