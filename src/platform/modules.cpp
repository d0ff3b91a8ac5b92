// Shared libraries and the device: LoadLibraryW and friends over dlopen,
// the scan engine found by the environment or beside this library, its
// functions by ordinal, the imager type word of KernelIoControl, and the
// default profile file. Environment variables are read at each call, so a
// test or an application can switch engines between sessions.
#include <tovrel/handleset.h>
#include <tovrel/platform.h>

#include "gdiobj.h"

#include <dlfcn.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const WCHAR kEngineModule[] = u"qdxengine.dll";
const char kEngineFile[] = "libqdxengine.so";

// The engine's functions by ordinal; a gap is an ordinal it does not have.
struct Ordinal {
    WORD ordinal;
    const char* name;
};
const Ordinal kEngineOrdinals[] = {
    {1, "QDXE_InitializeScanEngine"},
    {2, "QDXE_DeinitializeScanEngine"},
    {3, "QDXE_OpenSessionWithScanEngine"},
    {4, "QDXE_CloseSessionWithScanEngine"},
    {5, "QDXE_ReserveAndRegisterScanSpace"},
    {6, "QDXE_ReleaseScanSpace"},
    {7, "QDXE_GrabFrame"},
    {8, "QDXE_StartScanning"},
    {9, "QDXE_StopScanning"},
    {12, "QDXE_SetIllumination"},
    {13, "QDXE_SetAimer"},
    {15, "QDXE_SetExposureMode"},
    {16, "QDXE_SetExposureSettings"},
    {20, "QDXE_GetDriverRevision"},
    {23, "GetEngineType"},
    {24, "QDXE_GetEngineInfo"},
    {27, "QDXE_GrabWideFrame"},
};

struct Module {
    PlatHandleLink link;
    void* library;
    bool engine;
};

PlatHandleSet g_modules;

// The folder that holds this library, with its slash; empty if unknown.
std::string OwnFolder() {
    Dl_info info;
    if (!dladdr(reinterpret_cast<void*>(&OwnFolder), &info) || !info.dli_fname) return std::string();
    const char* slash = std::strrchr(info.dli_fname, '/');
    return slash ? std::string(info.dli_fname, size_t(slash - info.dli_fname) + 1) : std::string();
}

void* OpenEngine() {
    const char* chosen = std::getenv("TOVREL_ENGINE");
    if (chosen && *chosen) return dlopen(chosen, RTLD_NOW | RTLD_LOCAL);
    std::string beside = OwnFolder() + kEngineFile;
    if (void* library = dlopen(beside.c_str(), RTLD_NOW | RTLD_LOCAL)) return library;
    return dlopen(kEngineFile, RTLD_NOW | RTLD_LOCAL);
}

Module* Lookup(HMODULE module) { return g_modules.Contains(module) ? static_cast<Module*>(module) : nullptr; }

}  // namespace

extern "C" {

HMODULE LoadLibraryW(const WCHAR* name) {
    if (!name || !name[0]) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    bool engine = _wcsicmp(name, kEngineModule) == 0;
    void* library = nullptr;
    try {
        if (engine) {
            library = OpenEngine();
        } else {
            char path[PATH_MAX];
            if (PlatWideToUtf8(name, path, sizeof path) != size_t(-1)) library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        }
    } catch (...) {  // the folder's name did not fit in memory
        library = nullptr;
    }
    if (!library) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    auto* m = PlatNew<Module>();
    if (!m) {
        dlclose(library);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);  // whatever dlclose left behind
        return nullptr;
    }
    m->library = library;
    m->engine = engine;
    g_modules.Insert(m, &m->link);
    return m;
}

FARPROC GetProcAddressW(HMODULE module, const WCHAR* name) {
    Module* m = Lookup(module);
    if (!m || !name) {
        SetLastError(m ? ERROR_INVALID_PARAMETER : ERROR_INVALID_HANDLE);
        return nullptr;
    }
    const char* symbol = nullptr;
    char text[256];
    uintptr_t value = reinterpret_cast<uintptr_t>(name);
    if (value <= 0xFFFF) {
        if (m->engine)
            for (const Ordinal& o : kEngineOrdinals)
                if (o.ordinal == value) symbol = o.name;
    } else if (PlatWideToUtf8(name, text, sizeof text) != size_t(-1)) {
        symbol = text;
    }
    void* address = symbol ? dlsym(m->library, symbol) : nullptr;
    if (!address) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    FARPROC f;
    std::memcpy(&f, &address, sizeof f);
    return f;
}

BOOL FreeLibrary(HMODULE module) {
    if (!g_modules.Erase(module)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    auto* m = static_cast<Module*>(module);
    int rc = dlclose(m->library);
    PlatFree(m);
    return rc == 0;
}

BOOL KernelIoControl(DWORD code, void* /*in*/, DWORD /*inSize*/, void* out, DWORD outSize, DWORD* returned) {
    if (returned) *returned = 0;
    if (code != PLAT_IOCTL_IMAGER_TYPE) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    if (!out || outSize < sizeof(DWORD)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // A device without the word answers as the call failing.
    const char* text = std::getenv("TOVREL_IMAGER_TYPE");
    char* end = nullptr;
    errno = 0;
    long long word = text ? std::strtoll(text, &end, 10) : 0;
    if (!text || !*text || end == text || *end || errno || word < INT32_MIN || word > UINT32_MAX) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    DWORD value = DWORD(word);
    std::memcpy(out, &value, sizeof value);
    if (returned) *returned = sizeof value;
    return TRUE;
}

BOOL PlatDefaultProfileFile(WCHAR* buffer, DWORD capacity) {
    if (!buffer || capacity == 0) return FALSE;
    const char* chosen = std::getenv("TOVREL_PROFILES");
    const char* path = chosen && *chosen ? chosen : "/Brevane/ImagingProfiles.zpf";
    return PlatUtf8ToWide(path, buffer, capacity) != size_t(-1);
}

}  // extern "C"
