// The catalogue of the 14 filters with the typed call of each, and the
// seven lookup exports. Free of state: nothing here takes the lock.
#include "pfcatalog.h"

#include <cstring>

namespace {

LONG Int(const PfArgs* args, size_t at) {
    int32_t v;
    std::memcpy(&v, args->bytes + at, sizeof v);
    return LONG(v);
}

double Real(const PfArgs* args, size_t at) {
    double v;
    std::memcpy(&v, args->bytes + at, sizeof v);
    return v;
}

// The typed calls. A word goes to a DWORD argument as its 32 bits.
DWORD CallAverage(HDIB h, const PfArgs*) { return tovAverage(h); }
DWORD CallBrightness(HDIB h, const PfArgs* a) { return tovBrightness(h, Int(a, 0)); }
DWORD CallContrast(HDIB h, const PfArgs* a) { return tovContrast(h, Int(a, 0)); }
DWORD CallDespeckle(HDIB h, const PfArgs* a) { return tovDespeckle(h, DWORD(Int(a, 0)), DWORD(Int(a, 4))); }
DWORD CallFlipHorizontal(HDIB h, const PfArgs*) { return tovFlipHorizontal(h); }
DWORD CallFlipVertical(HDIB h, const PfArgs*) { return tovFlipVertical(h); }
DWORD CallGamma(HDIB h, const PfArgs* a) { return tovGammaCorrection(h, Real(a, 0)); }
DWORD CallStretch(HDIB h, const PfArgs* a) { return tovHistogramStretchEx(h, Int(a, 0), Int(a, 4), DWORD(Int(a, 8))); }
DWORD CallTimeDate(HDIB h, const PfArgs* a) { return tovOverlayTimeDate(h, DWORD(Int(a, 0)), Int(a, 4), DWORD(Int(a, 8))); }
DWORD CallInfinity(HDIB h, const PfArgs*) { return tovInfinityFilter(h); }
DWORD CallInvert(HDIB h, const PfArgs*) { return tovInvert(h); }
DWORD CallRank(HDIB h, const PfArgs* a) { return tovRankFilter(h, DWORD(Int(a, 0))); }
DWORD CallSharpen(HDIB h, const PfArgs* a) { return tovSharpen(h, Int(a, 0)); }
DWORD CallThreshold(HDIB h, const PfArgs* a) { return tovThreshold(h, DWORD(Int(a, 0))); }

#define PF_FLAGS {u"Flags", PfParmInteger, u"0", u"1", u"1"}
#define PF_INT(name, lo, hi, def) {u"" name, PfParmInteger, u"" lo, u"" hi, u"" def}

const PfEntry kCatalog[PF_FILTERS] = {
    {u"Average", 1, CallAverage, {PF_FLAGS}},
    {u"Brightness", 2, CallBrightness, {PF_FLAGS, PF_INT("Brightness", "-255", "255", "0")}},
    {u"Contrast", 3, CallContrast, {PF_FLAGS, PF_INT("Contrast", "-255", "255", "0")}},
    {u"Despeckle", 4, CallDespeckle,
     {PF_FLAGS, PF_INT("Threshold", "0", "9", "0"), PF_INT("Bkgcolor", "0", "255", "0")}},
    {u"Flip Horizontal", 5, CallFlipHorizontal, {PF_FLAGS}},
    {u"Flip Vertical", 6, CallFlipVertical, {PF_FLAGS}},
    {u"Gamma Correction", 7, CallGamma,
     {PF_FLAGS, {u"Gamma", PfParmReal, u"0", u"1", u"1"}}},
    {u"Histogram Stretch", 8, CallStretch,
     {PF_FLAGS, PF_INT("Low", "0", "255", "0"), PF_INT("High", "0", "255", "255"), PF_INT("Mode", "0", "1", "0")}},
    // The raster operation's default is 0x660046, SRCINVERT.
    {u"Time and Date", 9, CallTimeDate,
     {PF_FLAGS, PF_INT("Alignment", "0", "6", "2"), PF_INT("FontHeight", "0", "64", "16"),
      PF_INT("RasterOp", "0", "16777215", "6684742")}},
    {u"Infinity Filter", 10, CallInfinity, {PF_FLAGS}},
    {u"Invert", 11, CallInvert, {PF_FLAGS}},
    {u"Rank Filter", 12, CallRank, {PF_FLAGS, PF_INT("Rank", "0", "8", "4")}},
    {u"Sharpen", 13, CallSharpen, {PF_FLAGS, PF_INT("Val", "9", "32", "9")}},
    {u"Threshold", 14, CallThreshold, {PF_FLAGS, PF_INT("Level", "0", "255", "128")}},
};

#undef PF_FLAGS
#undef PF_INT

// One text of a parameter row; NULL outside the catalogue and for an empty row.
const WCHAR* ParmText(DWORD id, DWORD parm, const WCHAR* PfParm::*field) {
    const PfEntry* entry = PfCatalogEntry(id);
    if (!entry || parm < 1 || parm > PF_PARMS) return nullptr;
    const PfParm& row = entry->Parms[parm - 1];
    return row.pszName ? row.*field : nullptr;
}

}  // namespace

const PfEntry* PfCatalogEntry(DWORD id) { return id >= 1 && id <= PF_FILTERS ? &kCatalog[id - 1] : nullptr; }

extern "C" {

DWORD tovProfilePFNameToID(const WCHAR* name) {
    if (tovCannotRead(name)) return 0;
    for (const PfEntry& entry : kCatalog)
        if (_wcsicmp(entry.pszName, name) == 0) return entry.dwID;
    return 0;
}

const WCHAR* tovProfilePFIDToName(DWORD id) {
    const PfEntry* entry = PfCatalogEntry(id);
    return entry ? entry->pszName : nullptr;
}

DWORD tovProfilePFParmNameToID(DWORD id, const WCHAR* name) {
    const PfEntry* entry = PfCatalogEntry(id);
    if (!entry || tovCannotRead(name)) return 0;
    for (DWORD parm = 1; parm <= PF_PARMS && entry->Parms[parm - 1].pszName; ++parm)
        if (_wcsicmp(entry->Parms[parm - 1].pszName, name) == 0) return parm;
    return 0;
}

const WCHAR* tovProfilePFParmIDToName(DWORD id, DWORD parm) { return ParmText(id, parm, &PfParm::pszName); }

const WCHAR* tovProfilePFParmMin(DWORD id, DWORD parm) { return ParmText(id, parm, &PfParm::pszMin); }

const WCHAR* tovProfilePFParmMax(DWORD id, DWORD parm) { return ParmText(id, parm, &PfParm::pszMax); }

const WCHAR* tovProfilePFParmDefault(DWORD id, DWORD parm) { return ParmText(id, parm, &PfParm::pszDefault); }

}  // extern "C"
