// The simulated imager's view: a label under the imager, lit to a
// background level, with a row of bars, two lines of text-like marks, a
// square two-dimensional code, a strip that shows the frame counter in
// binary, and the aimer's line while the aimer is on. Everything is a pure
// function of the position and the light, so frames are reproducible.
#include "engine.h"

namespace qdx {

namespace {

uint32_t Hash(uint32_t a, uint32_t b, uint32_t c) {
    uint32_t h = a * 0x9E3779B1u ^ (b + 0x7F4A7C15u) * 0x85EBCA6Bu ^ c * 0xC2B2AE35u;
    h ^= h >> 15;
    h *= 0x2C1B3C6Du;
    h ^= h >> 12;
    return h;
}

// Ink of the label's print at (x, y), in a frame of width x height.
bool Ink(int x, int y, int width, int height, uint32_t frame) {
    // The frame counter: 8 squares of 8 pixels at the top left.
    if (y >= 4 && y < 12 && x >= 4 && x < 4 + 8 * 10) {
        int bit = (x - 4) / 10;
        return (x - 4) % 10 < 8 && ((frame >> (7 - bit)) & 1u);
    }
    // Bars: widths of 1 to 4 units of 3 pixels, a fixed sequence.
    if (y >= height * 15 / 100 && y < height * 45 / 100 && x >= width / 10 && x < width * 9 / 10) {
        int unit = (x - width / 10) / 3;
        int at = 0;
        for (uint32_t i = 0;; ++i) {
            int bar = 1 + int(Hash(i, 1, 0) % 4), gap = 1 + int(Hash(i, 2, 0) % 3);
            if (unit < at + bar) return true;
            if (unit < at + bar + gap) return false;
            at += bar + gap;
        }
    }
    // Two text lines of 5x7 marks in 6x9 cells of 2-pixel dots.
    for (int line = 0; line < 2; ++line) {
        int top = height * (55 + line * 10) / 100;
        if (y >= top && y < top + 18 && x >= width / 10 && x < width * 6 / 10) {
            int cx = (x - width / 10) / 2, cy = (y - top) / 2;
            int cell = cx / 6, col = cx % 6, row = cy;
            if (col == 5 || row > 6) return false;
            return Hash(uint32_t(cell), uint32_t(line), 3) >> (col * 7 + row) % 31 & 1u;
        }
    }
    // A 21 x 21 code of 5-pixel modules, with finder squares at three corners.
    int left = width * 68 / 100, top = height * 52 / 100;
    if (x >= left && x < left + 105 && y >= top && y < top + 105) {
        int mx = (x - left) / 5, my = (y - top) / 5;
        for (auto [fx, fy] : {std::pair<int, int>{0, 0}, {14, 0}, {0, 14}}) {
            int dx = mx - fx, dy = my - fy;
            if (dx >= 0 && dx < 7 && dy >= 0 && dy < 7) {
                bool ring = dx == 0 || dy == 0 || dx == 6 || dy == 6;
                bool core = dx >= 2 && dx <= 4 && dy >= 2 && dy <= 4;
                return ring || core;
            }
        }
        return Hash(uint32_t(mx), uint32_t(my), 4) & 1u;
    }
    return false;
}

}  // namespace

void DrawScene(uint8_t* out, int width, int height, const SceneLight& light) {
    const int cx = width / 2, cy = height / 2;
    const int radius2 = cx * cx + cy * cy;
    for (int y = 0; y < height; ++y) {
        uint8_t* row = out + size_t(y) * size_t(width);
        for (int x = 0; x < width; ++x) {
            // The light falls off a little towards the corners.
            int dx = x - cx, dy = y - cy;
            int level = light.level - light.level * (dx * dx + dy * dy) / (4 * radius2 + 1);
            if (Ink(x, y, width, height, light.frame)) level /= 6;
            if (light.aimer && ((y >= cy - 1 && y <= cy + 1 && x >= width * 3 / 10 && x < width * 7 / 10) ||
                                (x >= cx - 1 && x <= cx + 1 && y >= cy - 6 && y <= cy + 6)))
                level = 255;
            level += int(Hash(uint32_t(x), uint32_t(y), light.frame) % 5) - 2;  // sensor noise
            row[x] = uint8_t(level < 0 ? 0 : level > 255 ? 255 : level);
        }
    }
}

}  // namespace qdx
