// The stand-in scan engine through its control interface: calls by name,
// resets, failures on demand, geometry and counters.
#pragma once

#include <tovrel/platform.h>

#include "qdxcontrol.h"
#include "testsupport.h"

#include <stdlib.h>

#include <cstdint>

namespace tovtest {

// The engine as the platform loads it: from path when one is given, else
// from TOVREL_ENGINE or beside the platform library. While the library has
// it open this is the library's own instance.
struct EngineControls {
    HMODULE m = nullptr;
    explicit EngineControls(const char* path = nullptr) {
        if (path) setenv("TOVREL_ENGINE", path, 1);
        m = LoadLibraryW(u"qdxengine.dll");
        if (path) unsetenv("TOVREL_ENGINE");
    }
    ~EngineControls() {
        if (m) FreeLibrary(m);
    }
    EngineControls(const EngineControls&) = delete;
    EngineControls& operator=(const EngineControls&) = delete;

    template <class F>
    F Get(const char* name) const {
        return reinterpret_cast<F>(GetProcAddressW(m, W(name).c_str()));
    }
    void Reset() const { Get<void (*)()>("QdxCtlReset")(); }
    // The engine function of the ordinal fails times times after after calls (-1: always).
    void Fail(int ordinal, int after = 0, int times = 1) const {
        Get<void (*)(int32_t, int32_t, int32_t)>("QdxCtlFail")(ordinal, after, times);
    }
    void Geometry(uint32_t w, uint32_t h, uint32_t orientation) const {
        Get<void (*)(uint32_t, uint32_t, uint32_t)>("QdxCtlSetGeometry")(w, h, orientation);
    }
    int32_t Read(const char* counter) const { return Get<int32_t (*)()>(counter)(); }
    int32_t Setting(uint32_t id) const { return Get<int32_t (*)(uint32_t)>("QdxCtlExposureSetting")(id); }
    uint32_t LogCount() const { return Get<uint32_t (*)()>("QdxCtlLogCount")(); }
    bool LogEntry(uint32_t i, QdxCall* call) const { return Get<int32_t (*)(uint32_t, QdxCall*)>("QdxCtlLogEntry")(i, call); }
    // Nothing left open in the engine.
    bool Idle() const {
        return Read("QdxCtlOpenSessions") == 0 && Read("QdxCtlScanSpaces") == 0 && Read("QdxCtlInitialized") == 0;
    }
};

}  // namespace tovtest
