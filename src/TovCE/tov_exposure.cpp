// Exposure: the mode and the 17 settings, stored in the current profile's
// section of the active mode and passed on to the engine. A setting of the
// other mode can be neither read nor written.
#include "camera.h"

namespace {

constexpr DWORD kModeFixed = tovExposureFixed, kModeAutomatic = tovExposureAutomatic;
constexpr DWORD kSettings = 17;
constexpr DWORD kPairBytes = sizeof(EsPair);
const WCHAR kAutomatic[] = u"Automatic Exposure Control";
const WCHAR kFixed[] = u"Fixed Exposure Control";

struct EsParm {
    const WCHAR* name;  // NULL: a free row
    DWORD mode;
    LONG min, max, def;
};

const EsParm kEsTable[kSettings] = {
    {u"Exposure Method", 2, 0, 2, 2},     {u"Target Value", 2, 1, 255, 150},
    {u"Target Percentile", 2, 1, 99, 97}, {u"Target Accept Gap", 2, 1, 50, 40},
    {u"Max Exp", 2, 1, 7874, 200},        {u"Max Gain", 2, 1, 4, 2},
    {nullptr, 0, 0, 0, 0},                {nullptr, 0, 0, 0, 0},
    {nullptr, 0, 0, 0, 0},                {u"Conform Image", 2, 0, 1, 1},
    {u"Conform Tries", 2, 1, 8, 6},       {u"Specular Exclusion", 2, 0, 4, 2},
    {u"Specular Sat", 2, 200, 255, 240},  {u"Specular Limit", 2, 1, 5, 3},
    {u"Fixed Exp", 0, 1, 7874, 255},      {u"Fixed Gain", 0, 1, 4, 1},
    {u"Fixed Frame Rate", 0, 1, 30, 30},
};

// The checks both settings exports make before the lock.
bool PairsAcceptable(const EsPair* pairs, DWORD size) {
    return !tovCannotRead(pairs) && size / kPairBytes <= kSettings && size != 0 && size % kPairBytes == 0 &&
           !IsBadReadPtr(pairs, size);
}

const EsParm* ValidRow(DWORD id, DWORD mode) {
    return id < kSettings && kEsTable[id].name && kEsTable[id].mode == mode ? &kEsTable[id] : nullptr;
}

// The section of the active mode, made when missing; the lock is held.
DWORD ActiveSection(DWORD* mode, ProfileNode* section) {
    if (tovGetExposureMode(mode) != tovOk) return tovErrorUnknown;
    *section = pdoc::FindSection(&SessionDocument, CurrentProfile, *mode == kModeFixed ? kFixed : kAutomatic, true);
    ASSERT(*section);
    return tovOk;
}

// The bodies of the exports below, under the lock; a document operation
// out of memory throws, and the export turns that into 6.

// Neither section, or both, count as automatic.
DWORD GetMode(DWORD* pMode) {
    TovLockGuard lock;
    if (!CurrentProfile) return tovErrorNotInitialized;
    DWORD mode = kModeAutomatic;
    if (!pdoc::FindSection(&SessionDocument, CurrentProfile, kAutomatic, false) &&
        pdoc::FindSection(&SessionDocument, CurrentProfile, kFixed, false))
        mode = kModeFixed;
    *pMode = mode;
    return tovOk;
}

// Runs visit(row, pair, section) on each pair in order under the lock; a
// pair that is not valid, or a visit that fails, ends the walk.
template <class Visit>
DWORD ForEachPair(EsPair* pairs, DWORD size, Visit visit) {
    TovLockGuard lock;
    if (!CurrentProfile) return tovErrorNotInitialized;
    DWORD mode;
    ProfileNode section;
    if (ActiveSection(&mode, &section)) return tovErrorUnknown;
    for (DWORD i = 0; i < size / kPairBytes; ++i) {
        const EsParm* row = ValidRow(pairs[i].id, mode);
        if (!row) return DibErrorInvalidParm;
        if (DWORD result = visit(*row, pairs[i], section)) return result;
    }
    return tovOk;
}

DWORD GetSettings(EsPair* pairs, DWORD size) {
    return ForEachPair(pairs, size, [](const EsParm& row, EsPair& pair, ProfileNode section) -> DWORD {
        ProfileValue text;
        pair.value = pdoc::GetKey(section, row.name, &text) == 0 ? LONG(_wtol(text.text)) : row.def;
        return tovOk;
    });
}

// The values are clamped in the caller's pairs, stored, and then all go to
// the engine in one call.
DWORD SetSettings(EsPair* pairs, DWORD size) {
    TovLockGuard lock;
    DWORD result = ForEachPair(pairs, size, [](const EsParm& row, EsPair& pair, ProfileNode section) -> DWORD {
        pair.value = pair.value < row.min ? row.min : pair.value > row.max ? row.max : pair.value;
        ProfileValue value;
        value.SetNumber(pair.value);
        return pdoc::SetKey(&SessionDocument, section, row.name, &value) ? tovErrorUnknown : tovOk;
    });
    if (result) return result;
    return Camera.engine.SetExposureSettings(Camera.hScanSession, pairs, size) ? tovOk : tovErrorUnknown;
}

DWORD SetMode(DWORD mode) {
    TovLockGuard lock;
    if (!CurrentProfile) return tovErrorNotInitialized;
    if (!cmSetExposureMode(mode)) return tovErrorUnknown;
    if (mode != kModeFixed && mode != kModeAutomatic) return DibErrorInvalidParm;
    const WCHAR* other = mode == kModeFixed ? kAutomatic : kFixed;
    if (ProfileNode old = pdoc::FindSection(&SessionDocument, CurrentProfile, other, false)) {
        bool removed = pdoc::RemoveChild(CurrentProfile, old);
        ASSERT(removed);
    }
    ProfileNode section =
        pdoc::FindSection(&SessionDocument, CurrentProfile, mode == kModeFixed ? kFixed : kAutomatic, true);
    ASSERT(section);
    // Every setting of the mode into the section and to the engine, one at
    // a time: missing ones get their default, others their nearest limit.
    for (DWORD id = 0; id < kSettings; ++id) {
        EsPair pair = {id, 0};
        if (tovGetExposureSettings(&pair, kPairBytes) != tovOk) continue;
        if (tovSetExposureSettings(&pair, kPairBytes) != tovOk) return tovErrorUnknown;
    }
    return tovOk;
}

}  // namespace

extern "C" {

DWORD tovGetExposureMode(DWORD* pMode) {
    if (tovCannotRead(pMode)) return DibErrorInvalidParm;
    return ProfileGuarded([=] { return GetMode(pMode); });
}

DWORD tovGetExposureSettings(EsPair* pairs, DWORD size) {
    if (!PairsAcceptable(pairs, size)) return DibErrorInvalidParm;
    return ProfileGuarded([=] { return GetSettings(pairs, size); });
}

DWORD tovSetExposureSettings(EsPair* pairs, DWORD size) {
    if (!PairsAcceptable(pairs, size)) return DibErrorInvalidParm;
    return ProfileGuarded([=] { return SetSettings(pairs, size); });
}

DWORD tovSetExposureMode(DWORD mode) {
    return ProfileGuarded([=] { return SetMode(mode); });
}

const WCHAR* tovProfileESParmIDToName(DWORD id) { return id < kSettings ? kEsTable[id].name : nullptr; }

}  // extern "C"
