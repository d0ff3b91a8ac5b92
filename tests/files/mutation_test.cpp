// Damaged files: the public samples with bytes changed at random (PNG chunk
// checksums made right again, so that the damage reaches the decoder) load
// as a whole bitmap or give NULL, never read or write outside a buffer (the
// sanitizer build checks that) and never leak.
#include "filestest.h"

#include <random>

using namespace filestest;

namespace {

constexpr int kRounds = 120;

// How many of the damaged files still loaded.
int Mutate(const std::string& sample, bool png) {
    std::string seed = ReadFileBytes(TestDataDir() + sample);
    EXPECT_FALSE(seed.empty());
    std::mt19937 random(1234);
    int loaded = 0;
    for (int round = 0; round < kRounds && !seed.empty(); ++round) {
        std::string bytes = seed;
        for (int i = 0, changes = 1 + int(random() % 4); i < changes; ++i) {
            // The header and the first bytes of data are where damage matters most.
            size_t at = random() % 2 ? random() % std::min<size_t>(bytes.size(), 200) : random() % bytes.size();
            bytes[at] = char(random() % 3 ? random() : bytes[at] ^ (1 << (random() % 8)));
        }
        if (png) FixPngChecksums(bytes);
        WriteBytes("damaged", bytes);
        LeakGuard guard;
        Dib h(png ? DibPNGLoad(u"damaged") : DibJPGLoad(u"damaged"));
        if (h) {
            ++loaded;
            // Never a picture padded over damage that libjpeg reported.
            if (!png) {
                EXPECT_FALSE(OracleJpeg(bytes).damaged) << round;
            }
            EXPECT_GE(DibWidth(h), 1) << round;
            EXPECT_GE(DibHeight(h), 1) << round;
        }
    }
    return loaded;
}

}  // namespace

TEST(Damaged, PngAndJpegFiles) {
    ScratchDir dir;
    for (const char* sample : {"/pngsuite/basn3p04.png", "/pngsuite/basi0g04.png", "/pngsuite/s35i3p04.png",
                               "/pngsuite/basn0g08.png", "/jpeg/hopper_gray.jpg", "/jpeg/skater-progressive.jpg",
                               "/jpeg/testimgari.jpg"}) {
        SCOPED_TRACE(sample);
        int loaded = Mutate(sample, std::string(sample).find(".png") != std::string::npos);
        // Both ways out are taken: the damage reaches the decoder.
        EXPECT_GT(loaded, 0);
        EXPECT_LT(loaded, kRounds);
    }
}
