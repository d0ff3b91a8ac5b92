// The stand-in scan engine: the engine's C functions over one simulated
// imager, and the control interface that tests steer it with.
//
// Environment, read at load and at QdxCtlReset:
//   TOVREL_ENGINE_WIDTH        frame width reported, 640 (default) or 752
//   TOVREL_ENGINE_ORIENTATION  2: frames are delivered turned by 180 degrees
//   TOVREL_ENGINE_SOURCE       "scene" (default): the simulated label;
//                              "files:PATH": pictures from a folder, a file or
//                              a list of files, in turn;
//                              "v4l2:DEVICE": a camera, e.g. v4l2:/dev/video0
//
// Every function is safe with any argument: an unknown session or scan
// space gives FALSE. No C++ exception leaves a function.
#include "engine.h"
#include "qdxcontrol.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

namespace {

typedef int32_t BOOL;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint8_t BYTE;
typedef char16_t WCHAR;
struct EsPair {
    DWORD id;
    LONG value;
};
struct EngineInfo {
    DWORD dwSize, dwReserved0, dwFrameHeight, dwFrameWidth, dwReserved1, dwOrientation, dwReserved2[3];
};

constexpr int kOrdinals = 28;
constexpr int kSettings = 17;
constexpr DWORD kNarrowWidth = 640, kWideWidth = 752, kHeight = 480;
constexpr size_t kLogMax = 1 << 16;
constexpr int kSessionsMax = 4;
// Engine defaults of the exposure settings (automatic: target 150; fixed:
// exposure 255, gain 1).
constexpr LONG kSettingDefaults[kSettings] = {2, 150, 97, 40, 200, 2, 0, 0, 0, 1, 6, 2, 240, 3, 255, 1, 30};

struct Failure {
    int32_t after = 0, times = 0;
};

struct Engine {
    std::mutex mutex;
    bool initialized = false;
    DWORD sessions[kSessionsMax] = {};
    DWORD nextSession = 0x51;
    BYTE* spaces[kSessionsMax] = {};
    DWORD width = kNarrowWidth, height = kHeight, orientation = 0;
    BYTE engineType = 1;
    LONG aimer = 0, illumination = 0, mode = 2;
    bool scanning = false;
    LONG settings[kSettings];
    uint32_t frame = 0;
    Failure failures[kOrdinals];
    QdxCall log[kLogMax];
    size_t logCount = 0;
    bool fromFiles = false;
    qdx::FileSource files;
    std::string camera;  // a V4L2 device, opened with the scan space
    qdx::V4l2Source v4l2;
    ~Engine() {
        for (BYTE* space : spaces) std::free(space);
    }
};

// Lives until the library is unloaded.
Engine& E() {
    static Engine engine;
    return engine;
}

size_t SpaceBytes() { return size_t(kWideWidth) * kHeight; }

long EnvNumber(const char* name, long fallback) {
    const char* text = std::getenv(name);
    return text && *text ? std::strtol(text, nullptr, 10) : fallback;
}

// Back to the start; the mutex is held.
void ResetLocked(Engine& e) {
    for (int i = 0; i < kSessionsMax; ++i) {
        std::free(e.spaces[i]);
        e.spaces[i] = nullptr;
        e.sessions[i] = 0;
    }
    e.initialized = e.scanning = false;
    e.width = EnvNumber("TOVREL_ENGINE_WIDTH", kNarrowWidth) == long(kWideWidth) ? kWideWidth : kNarrowWidth;
    e.height = kHeight;
    e.orientation = DWORD(EnvNumber("TOVREL_ENGINE_ORIENTATION", 0));
    e.engineType = 1;
    e.aimer = e.illumination = 0;
    e.mode = 2;
    std::memcpy(e.settings, kSettingDefaults, sizeof e.settings);
    e.frame = 0;
    for (Failure& f : e.failures) f = Failure();
    e.logCount = 0;
    const char* source = std::getenv("TOVREL_ENGINE_SOURCE");
    e.fromFiles = false;
    e.v4l2.Close();
    try {
        e.camera.clear();
        if (source && std::strncmp(source, "files:", 6) == 0) e.fromFiles = e.files.Open(source + 6);
        if (source && std::strncmp(source, "v4l2:", 5) == 0) e.camera = source + 5;
    } catch (...) {
        e.fromFiles = false;
    }
}

const bool g_started = [] {
    std::lock_guard<std::mutex> lock(E().mutex);
    ResetLocked(E());
    return true;
}();

// The engine's half of every call: the log entry and an armed failure.
// The mutex is held. True: the call is to fail.
bool Enter(Engine& e, int ordinal, DWORD session, LONG value) {
    bool fail = false;
    Failure& f = e.failures[ordinal];
    if (f.times != 0) {
        if (f.after > 0) {
            --f.after;
        } else {
            fail = true;
            if (f.times > 0) --f.times;
        }
    }
    if (e.logCount < kLogMax) e.log[e.logCount++] = {ordinal, session, value, 0};
    return fail;
}

BOOL Leave(Engine& e, BOOL result) {
    if (e.logCount > 0) e.log[e.logCount - 1].result = result;
    return result;
}

int SessionIndex(const Engine& e, DWORD session) {
    for (int i = 0; i < kSessionsMax; ++i)
        if (session && e.sessions[i] == session) return i;
    return -1;
}

// The platform's last error, when the platform library is in the process.
void SetLastErrorCode(DWORD code) {
    using Setter = void (*)(DWORD);
    if (void* f = dlsym(RTLD_DEFAULT, "SetLastError")) {
        Setter set;
        std::memcpy(&set, &f, sizeof set);
        set(code);
    }
}

// The background level the exposure and the light give.
int LightLevel(const Engine& e) {
    long level = e.mode == 0 ? long(e.settings[14]) * e.settings[15] * 150 / 255 : e.settings[1];
    if (!e.illumination) level = level * 3 / 4;
    return int(level < 0 ? 0 : level > 255 ? 255 : level);
}

BOOL Grab(int ordinal, DWORD session, BYTE* space, DWORD width) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    bool fail = Enter(e, ordinal, session, LONG(width));
    int at = SessionIndex(e, session);
    if (fail || at < 0 || !space || space != e.spaces[at]) return Leave(e, 0);
    const int w = int(width), h = int(e.height);
    try {
        std::vector<BYTE> upright(size_t(w) * size_t(h));
        bool drawn = true;
        if (!e.camera.empty())
            drawn = e.v4l2.Draw(upright.data(), w, h);
        else if (e.fromFiles)
            drawn = e.files.Draw(e.frame, upright.data(), w, h);
        else
            qdx::DrawScene(upright.data(), w, h, {LightLevel(e), e.aimer != 0, e.frame});
        if (!drawn) return Leave(e, 0);
        // A turned imager delivers the picture upside down and mirrored.
        if (e.orientation == 2)
            for (size_t i = 0, n = upright.size(); i < n; ++i) space[i] = upright[n - 1 - i];
        else
            std::memcpy(space, upright.data(), upright.size());
    } catch (...) {
        return Leave(e, 0);
    }
    ++e.frame;
    return Leave(e, 1);
}

// A value of the engine's state, read under its mutex.
template <class Get>
int32_t Read(Get get) {
    std::lock_guard<std::mutex> lock(E().mutex);
    return get(E());
}

// Calls with a session and a value and nothing else to do but store it.
template <class Store>
BOOL SessionCall(int ordinal, DWORD session, LONG value, Store store) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    bool fail = Enter(e, ordinal, session, value);
    if (fail || SessionIndex(e, session) < 0) return Leave(e, 0);
    store(e);
    return Leave(e, 1);
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) BOOL QDXE_InitializeScanEngine(void) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    if (Enter(e, 1, 0, 0)) return Leave(e, 0);
    e.initialized = true;
    return Leave(e, 1);
}

__attribute__((visibility("default"))) BOOL QDXE_DeinitializeScanEngine(void) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    if (Enter(e, 2, 0, 0) || !e.initialized) return Leave(e, 0);
    e.initialized = false;
    return Leave(e, 1);
}

__attribute__((visibility("default"))) DWORD QDXE_OpenSessionWithScanEngine(void) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    if (Enter(e, 3, 0, 0) || !e.initialized) return DWORD(Leave(e, 0));
    for (DWORD& s : e.sessions) {
        if (!s) {
            s = e.nextSession++;
            Leave(e, 1);
            e.log[e.logCount - 1].session = s;
            return s;
        }
    }
    return DWORD(Leave(e, 0));
}

__attribute__((visibility("default"))) BOOL QDXE_CloseSessionWithScanEngine(DWORD session) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    int at = SessionIndex(e, session);
    if (Enter(e, 4, session, 0) || at < 0) return Leave(e, 0);
    e.sessions[at] = 0;
    e.scanning = false;
    return Leave(e, 1);
}

__attribute__((visibility("default"))) BYTE* QDXE_ReserveAndRegisterScanSpace(DWORD session) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    int at = SessionIndex(e, session);
    if (Enter(e, 5, session, 0) || at < 0 || e.spaces[at]) return Leave(e, 0), nullptr;
    bool camera = true;
    try {
        camera = e.camera.empty() || e.v4l2.Open(e.camera, int(e.width), int(e.height));
    } catch (...) {
        camera = false;
    }
    if (camera) e.spaces[at] = static_cast<BYTE*>(std::calloc(1, SpaceBytes()));
    Leave(e, e.spaces[at] != nullptr);
    return e.spaces[at];
}

__attribute__((visibility("default"))) BOOL QDXE_ReleaseScanSpace(DWORD session, BYTE* space) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    int at = SessionIndex(e, session);
    if (Enter(e, 6, session, 0) || at < 0 || !space || e.spaces[at] != space) return Leave(e, 0);
    std::free(e.spaces[at]);
    e.spaces[at] = nullptr;
    e.v4l2.Close();
    return Leave(e, 1);
}

__attribute__((visibility("default"))) BOOL QDXE_GrabFrame(DWORD session, BYTE* space) {
    return Grab(7, session, space, kNarrowWidth);
}

__attribute__((visibility("default"))) BOOL QDXE_StartScanning(DWORD session) {
    BOOL ok = SessionCall(8, session, 0, [](Engine& e) { e.scanning = true; });
    if (!ok) SetLastErrorCode(0x1F);  // ERROR_GEN_FAILURE
    return ok;
}

__attribute__((visibility("default"))) BOOL QDXE_StopScanning(DWORD session) {
    BOOL ok = SessionCall(9, session, 0, [](Engine& e) { e.scanning = false; });
    if (!ok) SetLastErrorCode(0x1F);
    return ok;
}

__attribute__((visibility("default"))) BOOL QDXE_SetIllumination(DWORD session, LONG value) {
    return SessionCall(12, session, value, [value](Engine& e) { e.illumination = value; });
}

__attribute__((visibility("default"))) BOOL QDXE_SetAimer(DWORD session, LONG value) {
    return SessionCall(13, session, value, [value](Engine& e) { e.aimer = value; });
}

__attribute__((visibility("default"))) BOOL QDXE_SetExposureMode(DWORD session, DWORD mode) {
    return SessionCall(15, session, LONG(mode), [mode](Engine& e) { e.mode = LONG(mode); });
}

__attribute__((visibility("default"))) BOOL QDXE_SetExposureSettings(DWORD session, const EsPair* pairs,
                                                                     DWORD bytes) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    if (Enter(e, 16, session, LONG(bytes)) || SessionIndex(e, session) < 0 || !pairs || bytes % sizeof(EsPair))
        return Leave(e, 0);
    for (DWORD i = 0; i < bytes / sizeof(EsPair); ++i)
        if (pairs[i].id < kSettings) e.settings[pairs[i].id] = pairs[i].value;
    return Leave(e, 1);
}

__attribute__((visibility("default"))) BOOL QDXE_GetDriverRevision(DWORD session, WCHAR* buffer) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    if (Enter(e, 20, session, 0) || SessionIndex(e, session) < 0 || !buffer) return Leave(e, 0);
    const char16_t text[] = u"QDX simulated imager 1.0";
    std::memcpy(buffer, text, sizeof text);
    return Leave(e, 1);
}

#ifndef QDX_WITHOUT_OPTIONAL
__attribute__((visibility("default"))) BOOL GetEngineType(BYTE* type) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    if (Enter(e, 23, 0, 0) || !type) return Leave(e, 0);
    *type = e.engineType;
    return Leave(e, 1);
}

__attribute__((visibility("default"))) BOOL QDXE_GrabWideFrame(DWORD session, BYTE* space) {
    return Grab(27, session, space, kWideWidth);
}
#endif

__attribute__((visibility("default"))) BOOL QDXE_GetEngineInfo(EngineInfo* info) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    if (Enter(e, 24, 0, 0) || !info) return Leave(e, 0);
    info->dwFrameHeight = e.height;
    info->dwFrameWidth = e.width;
    info->dwOrientation = e.orientation;
    return Leave(e, 1);
}

// ---- control ---------------------------------------------------------------

#define QDX_CONTROL extern __attribute__((visibility("default")))

QDX_CONTROL void QdxCtlReset(void) {
    std::lock_guard<std::mutex> lock(E().mutex);
    ResetLocked(E());
}

QDX_CONTROL void QdxCtlFail(int32_t ordinal, int32_t after, int32_t times) {
    if (ordinal < 0 || ordinal >= kOrdinals) return;
    std::lock_guard<std::mutex> lock(E().mutex);
    E().failures[ordinal] = {after < 0 ? 0 : after, times};
}

QDX_CONTROL void QdxCtlSetGeometry(uint32_t width, uint32_t height, uint32_t orientation) {
    std::lock_guard<std::mutex> lock(E().mutex);
    // What is drawn never leaves the scan space.
    E().width = width;
    E().height = height <= kHeight ? height : kHeight;
    E().orientation = orientation;
}

QDX_CONTROL void QdxCtlSetEngineType(uint8_t type) {
    std::lock_guard<std::mutex> lock(E().mutex);
    E().engineType = type;
}

QDX_CONTROL uint32_t QdxCtlLogCount(void) {
    std::lock_guard<std::mutex> lock(E().mutex);
    return uint32_t(E().logCount);
}

QDX_CONTROL int32_t QdxCtlLogEntry(uint32_t index, QdxCall* call) {
    std::lock_guard<std::mutex> lock(E().mutex);
    if (!call || index >= E().logCount) return 0;
    *call = E().log[index];
    return 1;
}

QDX_CONTROL int32_t QdxCtlOpenSessions(void) {
    return Read([](const Engine& e) {
        int32_t n = 0;
        for (DWORD s : e.sessions) n += s != 0;
        return n;
    });
}

QDX_CONTROL int32_t QdxCtlScanSpaces(void) {
    return Read([](const Engine& e) {
        int32_t n = 0;
        for (BYTE* s : e.spaces) n += s != nullptr;
        return n;
    });
}

QDX_CONTROL int32_t QdxCtlInitialized(void) { return Read([](const Engine& e) { return int32_t(e.initialized); }); }
QDX_CONTROL int32_t QdxCtlAimer(void) { return Read([](const Engine& e) { return e.aimer; }); }
QDX_CONTROL int32_t QdxCtlIllumination(void) { return Read([](const Engine& e) { return e.illumination; }); }
QDX_CONTROL int32_t QdxCtlScanning(void) { return Read([](const Engine& e) { return int32_t(e.scanning); }); }
QDX_CONTROL int32_t QdxCtlExposureMode(void) { return Read([](const Engine& e) { return e.mode; }); }

QDX_CONTROL int32_t QdxCtlExposureSetting(uint32_t id) {
    return Read([id](const Engine& e) { return id < kSettings ? e.settings[id] : 0; });
}

}  // extern "C"
