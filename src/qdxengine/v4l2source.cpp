// Frames from a Video4Linux2 device through libv4l2, which converts the
// formats cameras give (MJPEG and the like) to one of those read here: the
// grey bytes, or the luma of a YUV format, scaled or cropped to the frame.
// Opening never blocks and a device that gives no frame within a second
// fails the grab instead of hanging it.
#include "engine.h"

#include <fcntl.h>
#include <libv4l2.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstring>

namespace qdx {

namespace {

constexpr int kFrameWaitMs = 1000;
constexpr uint32_t kPreferred[] = {V4L2_PIX_FMT_GREY, V4L2_PIX_FMT_YUV420, V4L2_PIX_FMT_NV12, V4L2_PIX_FMT_YUYV,
                                   V4L2_PIX_FMT_UYVY};

int Ioctl(int fd, unsigned long request, void* arg) {
    int r;
    do r = v4l2_ioctl(fd, request, arg);
    while (r < 0 && errno == EINTR);
    return r;
}

}  // namespace

uint32_t ChooseV4l2Format(const std::vector<uint32_t>& offered) {
    for (uint32_t wanted : kPreferred)
        for (uint32_t f : offered)
            if (f == wanted) return f;
    return 0;
}

bool ExtractLuma(uint32_t format, const uint8_t* data, size_t bytes, int width, int height, int bytesPerLine,
                 uint8_t* out, int outWidth, int outHeight) {
    // Where the luma of (x, y) lies: one byte a pixel in the planar and
    // grey formats, every other byte in the packed ones.
    int step = 1, first = 0;
    if (format == V4L2_PIX_FMT_YUYV) step = 2;
    else if (format == V4L2_PIX_FMT_UYVY) step = 2, first = 1;
    else if (format != V4L2_PIX_FMT_GREY && format != V4L2_PIX_FMT_YUV420 && format != V4L2_PIX_FMT_NV12) return false;
    if (width < 1 || height < 1 || bytesPerLine < width * step ||
        size_t(bytesPerLine) * size_t(height) > bytes)
        return false;
    for (int y = 0; y < outHeight; ++y) {
        const uint8_t* row = data + size_t(int64_t(y) * height / outHeight) * size_t(bytesPerLine) + first;
        uint8_t* to = out + size_t(y) * size_t(outWidth);
        for (int x = 0; x < outWidth; ++x) to[x] = row[size_t(int64_t(x) * width / outWidth) * size_t(step)];
    }
    return true;
}

V4l2Source::~V4l2Source() { Close(); }

void V4l2Source::Close() {
    if (fd_ < 0) return;
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    Ioctl(fd_, VIDIOC_STREAMOFF, &type);
    for (Buffer& b : buffers_) v4l2_munmap(b.start, b.length);
    buffers_.clear();
    v4l2_close(fd_);
    fd_ = -1;
}

bool V4l2Source::Open(const std::string& device, int width, int height) {
    Close();
    fd_ = v4l2_open(device.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0) return false;
    v4l2_capability cap;
    std::memset(&cap, 0, sizeof cap);
    if (Ioctl(fd_, VIDIOC_QUERYCAP, &cap) < 0 || !(cap.capabilities & V4L2_CAP_VIDEO_CAPTURE) ||
        !(cap.capabilities & V4L2_CAP_STREAMING)) {
        Close();
        return false;
    }
    std::vector<uint32_t> offered;
    v4l2_fmtdesc desc;
    std::memset(&desc, 0, sizeof desc);
    desc.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    for (desc.index = 0; Ioctl(fd_, VIDIOC_ENUM_FMT, &desc) == 0; ++desc.index) offered.push_back(desc.pixelformat);
    v4l2_format fmt;
    std::memset(&fmt, 0, sizeof fmt);
    fmt.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    fmt.fmt.pix.width = uint32_t(width);
    fmt.fmt.pix.height = uint32_t(height);
    fmt.fmt.pix.pixelformat = ChooseV4l2Format(offered);
    fmt.fmt.pix.field = V4L2_FIELD_NONE;
    if (!fmt.fmt.pix.pixelformat || Ioctl(fd_, VIDIOC_S_FMT, &fmt) < 0) {
        Close();
        return false;
    }
    format_ = fmt.fmt.pix.pixelformat;
    width_ = int(fmt.fmt.pix.width);
    height_ = int(fmt.fmt.pix.height);
    bytesPerLine_ = int(fmt.fmt.pix.bytesperline ? fmt.fmt.pix.bytesperline : fmt.fmt.pix.width);
    v4l2_requestbuffers req;
    std::memset(&req, 0, sizeof req);
    req.count = 2;
    req.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    req.memory = V4L2_MEMORY_MMAP;
    if (Ioctl(fd_, VIDIOC_REQBUFS, &req) < 0 || req.count < 1) {
        Close();
        return false;
    }
    for (uint32_t i = 0; i < req.count; ++i) {
        v4l2_buffer buf;
        std::memset(&buf, 0, sizeof buf);
        buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buf.memory = V4L2_MEMORY_MMAP;
        buf.index = i;
        void* start = MAP_FAILED;
        if (Ioctl(fd_, VIDIOC_QUERYBUF, &buf) == 0)
            start = v4l2_mmap(nullptr, buf.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, buf.m.offset);
        if (start == MAP_FAILED || Ioctl(fd_, VIDIOC_QBUF, &buf) < 0) {
            if (start != MAP_FAILED) v4l2_munmap(start, buf.length);
            Close();
            return false;
        }
        buffers_.push_back({start, buf.length});
    }
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (Ioctl(fd_, VIDIOC_STREAMON, &type) < 0) {
        Close();
        return false;
    }
    return true;
}

bool V4l2Source::Draw(uint8_t* out, int width, int height) {
    if (fd_ < 0) return false;
    pollfd p = {fd_, POLLIN, 0};
    if (poll(&p, 1, kFrameWaitMs) <= 0) return false;
    v4l2_buffer buf;
    std::memset(&buf, 0, sizeof buf);
    buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buf.memory = V4L2_MEMORY_MMAP;
    if (Ioctl(fd_, VIDIOC_DQBUF, &buf) < 0 || buf.index >= buffers_.size()) return false;
    const Buffer& b = buffers_[buf.index];
    bool ok = ExtractLuma(format_, static_cast<const uint8_t*>(b.start), buf.bytesused ? buf.bytesused : b.length,
                          width_, height_, bytesPerLine_, out, width, height);
    Ioctl(fd_, VIDIOC_QBUF, &buf);
    return ok;
}

}  // namespace qdx
