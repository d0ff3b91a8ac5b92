// Flips, crop and scale against the rules written pixel by pixel, at 1, 4
// and 8 bits over widths that straddle byte and word boundaries.
#include "opstest.h"

using namespace opstest;

namespace {

const LONG kWidths[] = {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 32, 33, 100};
const LONG kHeights[] = {1, 2, 3, 8};

// The bits past the last pixel of each row. A re-made bitmap keeps those its
// new pixel store came with: those of a fresh bitmap nobody has written.
Bytes Padding(HDIB d) {
    Bytes out;
    for (LONG y = 0; y < DibHeight(d); ++y)
        for (int64_t bit = int64_t(DibWidth(d)) * DibBitCount(d); bit < DibRowLength(d) * 8; ++bit)
            out.push_back((d->ppRow[y][bit / 8] >> (7 - bit % 8)) & 1);
    return out;
}

// A re-made bitmap: the picture, the depth and colours kept, fresh padding.
void ExpectRemade(HDIB d, const Pic& want, DWORD bits, const Bytes& colours) {
    const Pic out = Read(d);
    ASSERT_EQ(std::tie(out.w, out.h, out.v), std::tie(want.w, want.h, want.v));
    EXPECT_EQ(DibBitCount(d), bits);
    EXPECT_EQ(Colours(d), colours);
    Dib fresh(tovCreateHDIBExt(DibWidth(d), DibHeight(d), 256, DibBitCount(d)));
    EXPECT_EQ(Padding(d), Padding(fresh));
}

// Flipping twice restores; the padding bits and colours stay.
TEST(Geometry, FlipsMatchReference) {
    uint32_t seed = 3;
    for (DWORD bits : tovtest::kDepths)
        for (LONG w : kWidths)
            for (LONG h : kHeights) {
                Dib g = Random(w, h, bits, seed++);
                const Bytes orig = Store(g), colours = Colours(g);
                const Pic in = Read(g);
                Pic up = in, mirrored = in;
                for (LONG y = 0; y < h; ++y)
                    for (LONG x = 0; x < w; ++x) {
                        up.at(x, y) = in.at(x, h - 1 - y);
                        mirrored.at(x, y) = in.at(w - 1 - x, y);
                    }
                for (auto [op, pic] : {std::pair{tovFlipHorizontal, up}, std::pair{tovFlipVertical, mirrored}}) {
                    const Bytes want = WithPixels(g, pic);
                    ASSERT_EQ(op(g), 0u);
                    ASSERT_EQ(Store(g), want) << bits << " bits " << w << "x" << h;
                    ASSERT_EQ(op(g), 0u);
                    ASSERT_EQ(Store(g), orig);
                }
                EXPECT_EQ(Colours(g), colours);
            }
}

TEST(Geometry, CropMatchesReference) {
    std::mt19937 rng(4);
    for (DWORD bits : tovtest::kDepths)
        for (LONG w : kWidths)
            for (LONG h : kHeights)
                for (int round = 0; round < 4; ++round) {
                    Dib g = Random(w, h, bits, rng());
                    const Pic in = Read(g);
                    const Bytes colours = Colours(g);
                    const DWORD cw = 1 + rng() % w, ch = 1 + rng() % h;
                    const DWORD x = rng() % (w - cw + 1), y = rng() % (h - ch + 1);
                    ASSERT_EQ(tovCrop(g, x, y, cw, ch), 0u);
                    Pic want{LONG(cw), LONG(ch), {}};
                    for (DWORD j = 0; j < ch; ++j)
                        for (DWORD i = 0; i < cw; ++i) want.v.push_back(in.at(x + i, y + j));
                    SCOPED_TRACE(testing::Message() << bits << " bits " << w << "x" << h << " crop " << x << ","
                                                    << y << " " << cw << "x" << ch);
                    ExpectRemade(g, want, bits, colours);
                    if (HasFatalFailure()) return;
                }
}

// New size and sampled positions by the single-precision rules.
TEST(Geometry, ScaleMatchesReference) {
    uint32_t seed = 6;
    for (DWORD bits : tovtest::kDepths)
        for (auto [w, h] : {std::pair<LONG, LONG>{40, 30}, {33, 17}, {7, 9}, {100, 3}, {832, 20}})
            for (DWORD percent = 5; percent <= 100; percent += (bits == 8 ? 1 : 7)) {
                Dib g = Random(w, h, bits, seed++);
                const Pic in = Read(g);
                const Bytes colours = Colours(g);
                const float f = float(double(float(percent)) * 0.01), inverse = 1.0f / f;
                Pic want{LONG(double(float(w) * f) + 0.5), LONG(double(float(h) * f) + 0.5), {}};
                for (LONG y = 0; y < want.h; ++y)
                    for (LONG x = 0; x < want.w; ++x) want.v.push_back(in.at(LONG(x * inverse), LONG(y * inverse)));
                ASSERT_EQ(tovScale(g, percent), want.w && want.h ? 0u : 6u) << w << "x" << h << " at " << percent;
                if (!want.w || !want.h) continue;
                SCOPED_TRACE(testing::Message() << bits << " bits " << w << "x" << h << " at " << percent);
                ExpectRemade(g, want, bits, colours);
                if (HasFatalFailure()) return;
            }
}

// Sizes and sampled columns worked out by hand: they hold the reference to
// the rules too.
TEST(Geometry, ScaleKnownSizes) {
    const struct { LONG w, h; DWORD percent; LONG nw, nh; std::vector<int> columns; } cases[] = {
        {640, 480, 33, 211, 158, {0, 3, 6, 9}}, {832, 640, 75, 624, 480, {0, 1, 2, 4}}, {10, 7, 50, 5, 4, {0, 2, 4, 6, 8}}};
    for (const auto& c : cases) {
        Dib g(tovCreateHDIBExt(c.w, c.h, 0, 8));
        for (LONG y = 0; y < c.h; ++y)
            for (LONG x = 0; x < c.w; ++x) g.h->ppRow[y][x] = BYTE(x);
        ASSERT_EQ(tovScale(g, c.percent), 0u);
        EXPECT_EQ(std::make_pair(DibWidth(g), DibHeight(g)), std::make_pair(c.nw, c.nh)) << c.percent;
        EXPECT_EQ(std::vector<int>(g.h->ppRow[c.nh - 1], g.h->ppRow[c.nh - 1] + c.columns.size()), c.columns);
    }
}

// Rectangles outside (their ends wrapping past 2^32 included), percentages
// out of range; nothing refused changes a pixel.
TEST(Geometry, Refusals) {
    auto crop = [](DWORD x, DWORD y, DWORD w, DWORD h) { return [=](HDIB d) { return tovCrop(d, x, y, w, h); }; };
    const struct { const char* what; Op op; DWORD want; } cases[] = {
        {"crop touching the right edge", crop(8, 0, 1, 6), 0}, {"one past it", crop(8, 0, 2, 6), 7},
        {"one past the bottom", crop(0, 5, 9, 2), 7},          {"no width", crop(0, 0, 0, 6), 7},
        {"no height", crop(0, 0, 9, 0), 7},                    {"x + w wraps", crop(0xFFFFFFFFu, 0, 2, 1), 7},
        {"y + h wraps", crop(0, 0xFFFFFFF0u, 1, 0x20), 7},     {"w huge", crop(0, 0, 0xFFFFFFFFu, 1), 7},
        {"both halves", crop(0x80000000u, 0, 0x80000001u, 1), 7},
        {"scale 4", OP(tovScale(h, 4)), 7}, {"scale 101", OP(tovScale(h, 101)), 7}, {"scale to nothing", OP(tovScale(h, 5)), 6}};
    Dib g = Random(9, 6, 4, 5);
    const Bytes before = Store(g);
    for (const auto& c : cases) {
        Dib copy = Copy(g);
        EXPECT_EQ(c.op(copy), c.want) << c.what;
        if (c.want) { EXPECT_EQ(Store(copy), before) << c.what; }
    }
}

}  // namespace

