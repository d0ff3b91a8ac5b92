// The chain of the open profile: ApplyPfParm, the one gate every parameter
// value passes; LoadChain, which fills the table from the document; and
// tovProcessImage, which runs it. A run reads only the table: texts are
// converted when they enter.
#include "pfcatalog.h"
#include "session.h"

#include <cstring>

ChainSlot ChainTable[CHAIN_SLOTS];

namespace {

size_t KindBytes(DWORD kind) { return kind == PfParmReal ? sizeof(double) : sizeof(int32_t); }

}  // namespace

void ClearChain(void) { std::memset(ChainTable, 0, sizeof ChainTable); }

bool ApplyPfParm(DWORD slot, const WCHAR* parmName, ProfileValue* value) {
    if (!parmName) return false;
    ASSERT(value && value->AsText());
    ASSERT(slot >= 1 && slot <= CHAIN_SLOTS && ChainTable[slot - 1].dwID != 0);
    ChainSlot& s = ChainTable[slot - 1];
    const PfEntry* entry = PfCatalogEntry(s.dwID);
    size_t at = 0;
    for (DWORD row = 0; row < PF_PARMS; ++row) {
        const PfParm& parm = entry->Parms[row];
        if (!parm.pszName) return false;
        if (_wcsicmp(parm.pszName, parmName) != 0) {
            if (row > 0) at += KindBytes(parm.dwKind);
            continue;
        }
        ASSERT(parm.dwKind == PfParmInteger || parm.dwKind == PfParmReal);
        ASSERT(at < PF_ARGS_BYTES);
        WCHAR canonical[64];
        if (parm.dwKind == PfParmInteger) {
            LONG v = _wtol(value->AsText()), lo = _wtol(parm.pszMin), hi = _wtol(parm.pszMax);
            if (v < lo) v = lo;
            if (v > hi) v = hi;
            _snwprintf(canonical, 64, u"%d", int(v));
            value->SetText(canonical);
            if (row == 0) {
                s.dwFlags = DWORD(v);
                return true;
            }
            int32_t word = int32_t(v);
            std::memcpy(s.Args.bytes + at, &word, sizeof word);
        } else {
            ASSERT(row != 0);
            double v = PlatWideToDouble(value->AsText(), nullptr);
            double lo = PlatWideToDouble(parm.pszMin, nullptr), hi = PlatWideToDouble(parm.pszMax, nullptr);
            if (v < lo) v = lo;
            if (v > hi) v = hi;
            _snwprintf(canonical, 64, u"%.2f", v);
            value->SetText(canonical);
            std::memcpy(s.Args.bytes + at, &v, sizeof v);  // every digit: the text shows two
        }
        return true;
    }
    return false;
}

DWORD LoadChain(void) {
    ProfileNode section = pdoc::FindSection(&SessionDocument, CurrentProfile, u"Processing", true);
    if (!section) return 0;
    DWORD slot = 1;
    for (ProfileNode entry = pdoc::NextChild(section, ProfileNode(), ProfileNodeElement, nullptr, nullptr, nullptr);
         entry; entry = pdoc::NextChild(section, entry, ProfileNodeElement, nullptr, nullptr, nullptr), ++slot) {
        if (slot > CHAIN_SLOTS) return tovErrorProfileData;
        ProfileValue name;
        if (pdoc::GetAttribute(entry, u"name", &name)) return tovErrorProfileData;
        DWORD id = tovProfilePFNameToID(name.AsText());
        if (!id) return tovErrorProfileData;
        const PfEntry* filter = PfCatalogEntry(id);
        ChainSlot& s = ChainTable[slot - 1];
        s.dwID = id;
        s.pfnFilter = filter->pfnFilter;
        for (const PfParm& parm : filter->Parms) {
            if (!parm.pszName) break;
            ProfileValue value;
            bool fromFile = pdoc::GetKey(entry, parm.pszName, &value) == 0;
            if (!fromFile) value.SetText(parm.pszDefault);
            bool applied = ApplyPfParm(slot, parm.pszName, &value);
            ASSERT(applied);
            ProfileValue copy(value.AsText());
            if (pdoc::SetKey(&SessionDocument, entry, parm.pszName, &copy)) return tovErrorProfileData;
        }
    }
    return 0;
}

extern "C" {

DWORD tovProcessImage(HDIB hDest, HDIB hSource) {
    if (tovHDIBIsValid(hDest) != 0) return DibErrorInvalidDIB;
    if (tovHDIBIsValid(hSource) != 0) return DibErrorInvalidDIB;
    if (DibBitCount(hSource) != 8) return DibErrorInvalidDIB;
    if (hDest != hSource) DibCopy(hDest, hSource);
    const LONG width = DibWidth(hSource), height = DibHeight(hSource);
    TovLockGuard lock;
    for (const ChainSlot& slot : ChainTable) {
        if (!slot.pfnFilter) break;
        if (!(slot.dwFlags & 1) && DWORD(width) == tovGetImagerPreviewWidth() &&
            DWORD(height) == tovGetImagerPreviewHeight())
            continue;
        slot.pfnFilter(hDest, &slot.Args);  // a failing filter leaves the picture to the next one
    }
    return DibOk;
}

}  // extern "C"
