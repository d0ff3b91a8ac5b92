// Inside the stand-in scan engine: the frame sources. The engine's state
// and its exported functions are in qdxengine.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qdx {

// What a simulated frame depends on.
struct SceneLight {
    int level;        // background grey of the label, 0 to 255
    bool aimer;       // the aimer pattern is on the label
    uint32_t frame;   // frame counter: consecutive grabs differ
};

// Draws the label scene, upright, width x height bytes at out (rows
// width bytes apart).
void DrawScene(uint8_t* out, int width, int height, const SceneLight& light);

// Pictures from files (PGM and PNG, grey or colour as luma), scaled to the
// frame by nearest neighbour. A source is a folder (its .pgm and .png files
// in name order), one picture, or a text file listing pictures one a line.
class FileSource {
public:
    // False when the source names no readable picture.
    bool Open(const std::string& source);
    // Picture number `index` (modulo the count), scaled into out; false when
    // the file cannot be read any more.
    bool Draw(uint32_t index, uint8_t* out, int width, int height);
    size_t Count() const { return files_.size(); }

private:
    std::vector<std::string> files_;
};

// A picture read from a file: grey bytes, rows top first.
struct Picture {
    int width = 0, height = 0;
    std::vector<uint8_t> pixels;
};
bool ReadPgm(const std::string& path, Picture* out);
bool ReadPng(const std::string& path, Picture* out);

}  // namespace qdx
