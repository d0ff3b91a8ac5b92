// Damaged files: the public samples with bytes changed at random (PNG chunk
// checksums made right again, so that the damage reaches the decoder) load
// as a whole bitmap or give NULL, never read or write outside a buffer (the
// sanitizer build checks that) and never leak.
#include "filestest.h"

#include <zlib.h>

#include <random>

using namespace filestest;

namespace {

uint32_t Be32(const std::string& b, size_t at) {
    return uint32_t(BYTE(b[at])) << 24 | uint32_t(BYTE(b[at + 1])) << 16 | uint32_t(BYTE(b[at + 2])) << 8 |
           uint32_t(BYTE(b[at + 3]));
}

// Recomputes every chunk's checksum that the layout still allows to find.
void FixChecksums(std::string& b) {
    size_t at = 8;
    while (at + 12 <= b.size()) {
        uint32_t length = Be32(b, at);
        if (length > b.size() - at - 12) return;
        uint32_t crc = uint32_t(crc32(0, reinterpret_cast<const Bytef*>(b.data() + at + 4), uInt(length + 4)));
        for (int i = 0; i < 4; ++i) b[at + 8 + length + i] = char(crc >> (24 - 8 * i));
        at += size_t(length) + 12;
    }
}

// Returns how many of the damaged files still loaded.
template <class Load>
int Mutate(const std::string& sample, bool png, Load load) {
    std::string seed = tovtest::ReadFileBytes(tovtest::TestDataDir() + sample);
    EXPECT_FALSE(seed.empty());
    if (seed.empty()) return 0;
    std::mt19937 random(1234);
    int loaded = 0;
    for (int round = 0; round < 250; ++round) {
        SCOPED_TRACE(round);
        std::string bytes = seed;
        int changes = 1 + int(random() % 4);
        for (int i = 0; i < changes; ++i) {
            // The header and the first bytes of data are where damage matters most.
            size_t at = random() % 2 ? random() % std::min<size_t>(bytes.size(), 200) : random() % bytes.size();
            bytes[at] = char(random() % 3 ? random() : bytes[at] ^ (1 << (random() % 8)));
        }
        if (png) FixChecksums(bytes);
        WriteBytes(png ? "damaged.png" : "damaged.jpg", bytes);
        LeakGuard guard;
        HDIB h = load();
        if (h) {
            ++loaded;
            EXPECT_GE(DibWidth(h), 1);
            EXPECT_GE(DibHeight(h), 1);
            DibUnload(h);
        }
    }
    return loaded;
}

}  // namespace

TEST(Damaged, PngFiles) {
    tovtest::ScratchDir dir;
    for (const char* sample : {"/pngsuite/basn3p04.png", "/pngsuite/basi0g04.png", "/pngsuite/s35i3p04.png",
                               "/pngsuite/basn0g08.png"}) {
        SCOPED_TRACE(sample);
        int loaded = Mutate(sample, true, [] { return DibPNGLoad(u"damaged.png"); });
        // Both ways out are taken: the damage reaches the decoder.
        EXPECT_GT(loaded, 0);
        EXPECT_LT(loaded, 250);
    }
}

TEST(Damaged, JpegFiles) {
    tovtest::ScratchDir dir;
    for (const char* sample : {"/jpeg/hopper_gray.jpg", "/jpeg/skater-progressive.jpg", "/jpeg/testimgari.jpg"}) {
        SCOPED_TRACE(sample);
        int loaded = Mutate(sample, false, [] { return DibJPGLoad(u"damaged.jpg"); });
        // Both ways out are taken: the damage reaches the decoder.
        EXPECT_GT(loaded, 0);
        EXPECT_LT(loaded, 250);
    }
}
