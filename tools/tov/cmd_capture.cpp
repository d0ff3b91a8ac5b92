// tov capture: opens the camera on a profile, captures frames, writes them
// as pictures and reports the rate.
#include "commands.h"

#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>

namespace {

constexpr long kMaxFrames = 100000;
constexpr long kProgressFrom = 20;  // frames; fewer show no progress line

// PATTERN with its printf number (%d, %03d, ...) replaced by n; a pattern
// without one gets "-n" before its extension.
std::string FrameName(const std::string& pattern, long n) {
    size_t percent = pattern.find('%');
    if (percent != std::string::npos) {
        char name[4096];
        std::snprintf(name, sizeof name, pattern.c_str(), n);
        return name;
    }
    size_t dot = pattern.rfind('.');
    std::string number = "-" + std::to_string(n);
    return dot == std::string::npos ? pattern + number : pattern.substr(0, dot) + number + pattern.substr(dot);
}

bool PatternAcceptable(const std::string& pattern) {
    size_t percent = pattern.find('%');
    if (percent == std::string::npos) return true;
    size_t end = pattern.find_first_not_of("0123456789", percent + 1);
    return end != std::string::npos && pattern[end] == 'd' && pattern.find('%', end) == std::string::npos;
}

int RunCapture(tov::Arguments& args) {
    std::string profiles, profile, mode = "full", out = "frame-%03d.png", engine;
    const bool haveProfiles = args.Option("profiles", &profiles);
    args.Option("profile", &profile);
    args.Option("mode", &mode);
    args.Option("out", &out);
    const bool haveEngine = args.Option("engine", &engine);
    const bool processed = args.Flag("processed");
    long frames = 0, quality = 0;
    const bool optionsOk = args.IntOption("frames", 1, kMaxFrames, 1, &frames) &&
                           args.IntOption("quality", 1, 100, 90, &quality);
    if (!optionsOk || !args.Check("capture", 0)) return 1;
    if (mode != "full" && mode != "preview") return tov::Fail("capture: --mode is full or preview, not " + mode);
    if (!PatternAcceptable(out)) return tov::Fail("capture: --out takes one number as %d, %03d and the like");
    if (haveEngine) {
        if (engine != "scene" && engine.rfind("files:", 0) != 0 && engine.rfind("v4l2:", 0) != 0)
            return tov::Fail("capture: --engine is scene, files:PATH (a folder, a picture or a list of pictures) "
                             "or v4l2:DEVICE");
        setenv("TOVREL_ENGINE_SOURCE", engine.c_str(), 1);
    }
    const std::u16string file = tov::Wide(profiles), name = tov::Wide(profile);
    DWORD flags = 0x300 | (profile.empty() ? 0x8 : 0);
    DWORD result = tovInitCamera(haveProfiles ? file.c_str() : nullptr, name.c_str(), &flags);
    if (result != tovOk) {
        return tov::Fail("capture: cannot open the camera on profile \"" + profile + "\" of " +
                         (haveProfiles ? profiles : std::string("the default profile file")) + ": " +
                         tov::ResultText(result));
    }
    const DWORD captureMode = (mode == "preview" ? tovCapturePreview : tovCaptureFull) + (processed ? 2 : 0);
    HDIB picture = tovCreateHDIB();
    int status = 0;
    if (!picture || (result = tovStartCapture()) != tovOk) {
        status = tov::Fail("capture: cannot start capturing: " + tov::ResultText(picture ? result : DWORD(DibErrorMemoryAlocation)));
    }
    const bool progress = isatty(2) && frames >= kProgressFrom;
    const auto start = std::chrono::steady_clock::now();
    long written = 0;
    for (long n = 1; status == 0 && n <= frames; ++n) {
        if ((result = tovCaptureImage(picture, captureMode)) != tovOk) {
            status = tov::Fail("capture: frame " + std::to_string(n) + ": " + tov::ResultText(result));
            break;
        }
        std::string error;
        if (tov::SavePicture(picture, FrameName(out, n), DWORD(quality), &error) != tovOk) {
            status = tov::Fail("capture: " + error);
            break;
        }
        ++written;
        if (progress) std::fprintf(stderr, "\rcaptured %ld of %ld", n, frames);
    }
    if (progress) std::fputc('\n', stderr);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const long width = picture ? long(tovWidth(picture)) : 0, height = picture ? long(tovHeight(picture)) : 0;
    tovStopCapture();
    if (picture) tovUnloadHDIB(picture);
    tovUninitCamera();
    if (written > 0)
        std::printf("captured %ld %s frame%s of %ldx%ld%s in %.2f s (%.1f frames/s): %s%s\n", written, mode.c_str(),
                    written == 1 ? "" : "s", width, height, processed ? ", processed by the profile's chain" : "",
                    seconds, double(written) / (seconds > 0 ? seconds : 1e-9), FrameName(out, 1).c_str(),
                    written > 1 ? (" to " + FrameName(out, written)).c_str() : "");
    return status;
}

tov::CommandRegistrar registrar({"capture",
                                 "[--profiles FILE] [--profile NAME] [--frames N] [--mode full|preview] "
                                 "[--processed] [--out PATTERN] [--quality Q] [--engine scene|files:PATH|v4l2:DEVICE]",
                                 "captures frames from the imager into picture files", RunCapture, "capture --profiles profiles/sample.zpf --profile Labels --frames 10 --processed --out label-%02d.png"});

}  // namespace
