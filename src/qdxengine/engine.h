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

// A Video4Linux2 camera (through libv4l2): the luma of its frames, scaled
// to the frame asked for.
class V4l2Source {
public:
    V4l2Source() = default;
    ~V4l2Source();
    V4l2Source(const V4l2Source&) = delete;
    V4l2Source& operator=(const V4l2Source&) = delete;
    // False when the device cannot be opened, is no camera, or offers no
    // format read here; never blocks.
    bool Open(const std::string& device, int width, int height);
    void Close();
    // The next frame; false when none comes within a second.
    bool Draw(uint8_t* out, int width, int height);

private:
    struct Buffer {
        void* start;
        size_t length;
    };
    int fd_ = -1;
    uint32_t format_ = 0;
    int width_ = 0, height_ = 0, bytesPerLine_ = 0;
    std::vector<Buffer> buffers_;
};

// The format taken from those a device offers: grey, else a YUV format
// whose luma is read; 0 when none fits.
uint32_t ChooseV4l2Format(const std::vector<uint32_t>& offered);
// The luma of a frame of that format into out, scaled by nearest
// neighbour; false for a format not read here or a frame too short.
bool ExtractLuma(uint32_t format, const uint8_t* data, size_t bytes, int width, int height, int bytesPerLine,
                 uint8_t* out, int outWidth, int outHeight);

// A picture read from a file: grey bytes, rows top first.
struct Picture {
    int width = 0, height = 0;
    std::vector<uint8_t> pixels;
};
bool ReadPgm(const std::string& path, Picture* out);
bool ReadPng(const std::string& path, Picture* out);

}  // namespace qdx
