// Profile management: the profile file (list, save, delete, each through a
// private document read anew and written back whole) and the chain of the
// open profile (add, delete, read and set a parameter), which change the
// chain table and the document in one step under the lock.
//
// Profile names that the file could not give back as they were saved are
// refused with 7: longer than a list entry holds, or with a "/" that a
// lookup would take for a path.
#include "pfcatalog.h"
#include "session.h"

#include <cstring>

namespace {

constexpr DWORD kListEntry = 260;  // characters of one entry of the list
constexpr DWORD kSaveForce = 1, kSaveReadOnly = 2, kSaveOverwrite = 4;

bool NameStorable(const WCHAR* name) {
    size_t n = 0;
    for (; name[n]; ++n)
        if (name[n] == u'/' || n + 1 >= kListEntry) return false;
    return true;
}

// The file named, or the default one, into buffer.
const WCHAR* FileOrDefault(const WCHAR* file, WCHAR* buffer) {
    if (file) return file;
    return PlatDefaultProfileFile(buffer, TOV_MAX_PATH) ? buffer : nullptr;
}

// A private document that closes itself.
struct PrivateDocument {
    ProfileDocument doc;
    ~PrivateDocument() { pdoc::Close(&doc); }
    bool Load(const WCHAR* file) {
        WCHAR buffer[TOV_MAX_PATH];
        const WCHAR* path = FileOrDefault(file, buffer);
        return path && pdoc::Load(&doc, path) == 0;
    }
    DWORD Save(const WCHAR* file) {
        WCHAR buffer[TOV_MAX_PATH];
        const WCHAR* path = FileOrDefault(file, buffer);
        return path && pdoc::Save(&doc, path) == 0 ? tovOk : DibErrorFileWrite;
    }
};

ProfileNode Processing() {
    return CurrentProfile ? pdoc::FindSection(&SessionDocument, CurrentProfile, u"Processing", false) : ProfileNode();
}

// The n-th visible chain entry (from 1); none when the chain is shorter.
ProfileNode ChainEntry(ProfileNode processing, DWORD n) {
    ProfileNode entry;
    for (DWORD i = 0; i < n; ++i) {
        entry = pdoc::NextChild(processing, entry, ProfileNodeElement, nullptr, nullptr, nullptr);
        if (!entry) break;
    }
    return entry;
}

// Steps shared by the two parameter exports: the parameter's name and the
// slot's chain entry, or the result code that ends the call. The lock is held.
DWORD FindParameter(DWORD slot, DWORD parm, const WCHAR** name, ProfileNode* entry) {
    *name = tovProfilePFParmIDToName(ChainTable[slot - 1].dwID, parm);
    if (!*name) return DibErrorInvalidParm;
    *entry = ChainEntry(Processing(), slot);
    return *entry ? tovOk : tovErrorUnknown;
}

bool SlotInRange(DWORD slot) { return slot >= 1 && slot <= CHAIN_SLOTS; }

DWORD SaveProfile(const WCHAR* file, const WCHAR* name, DWORD flags) {
    TovLockGuard lock;
    if (!SessionDocument.Dom || !CurrentProfile) return tovErrorNotInitialized;
    PrivateDocument target;
    if (!target.Load(file)) return tovErrorProfileFileLoad;
    if (ProfileNode old = pdoc::FindSection(&target.doc, ProfileNode(), name, false)) {
        if ((pdoc::Flags(old) & ProfileFlagReadOnly) && !(flags & kSaveForce)) return tovErrorProfileReadOnly;
        if (!(flags & kSaveOverwrite)) return tovErrorProfileExists;
        bool removed = pdoc::RemoveChild(target.doc.Root, old);
        ASSERT(removed);
    }
    ProfileNode copy = pdoc::CopyTree(CurrentProfile, target.doc.Root);
    if (!copy) return tovErrorUnknown;
    ProfileValue newName(name), newFlags;
    newFlags.SetNumber((flags & kSaveReadOnly) ? LONG(ProfileFlagReadOnly) : 0);
    if (pdoc::SetAttribute(&target.doc, copy, u"name", &newName) ||
        pdoc::SetAttribute(&target.doc, copy, u"flags", &newFlags))
        return tovErrorUnknown;  // the file is not written
    return target.Save(file);
}

DWORD DeleteProfile(const WCHAR* file, const WCHAR* name) {
    PrivateDocument target;
    if (!target.Load(file)) return tovErrorProfileFileLoad;
    ProfileNode profile = pdoc::FindSection(&target.doc, ProfileNode(), name, false);
    if (!profile) return tovErrorProfileNotFound;
    if (pdoc::Flags(profile) & ProfileFlagReadOnly) return tovErrorProfileReadOnly;
    bool removed = pdoc::RemoveChild(target.doc.Root, profile);
    ASSERT(removed);
    return target.Save(file);
}

DWORD AddFilter(DWORD position, DWORD id) {
    TovLockGuard lock;
    ProfileNode processing = Processing();
    if (!processing) return 0;
    DWORD used = 0;
    while (used < CHAIN_SLOTS && ChainTable[used].dwID) ++used;
    if (used == CHAIN_SLOTS) return 0;
    const bool insert = position >= 1 && position <= used;
    const DWORD slot = insert ? position : used + 1;
    ProfileNode before;
    if (insert) {
        before = ChainEntry(processing, position);
        ASSERT(before);
    }
    const PfEntry* filter = PfCatalogEntry(id);
    ProfileValue name(filter->pszName);
    // The table is not touched until the document has the entry.
    ProfileNode entry = pdoc::AddElement(processing, before, u"Section");
    if (!entry) return 0;
    std::memmove(&ChainTable[slot], &ChainTable[slot - 1], sizeof(ChainSlot) * (used - (slot - 1)));
    ChainSlot& s = ChainTable[slot - 1];
    std::memset(&s, 0, sizeof s);
    s.dwID = id;
    s.pfnFilter = filter->pfnFilter;
    pdoc::SetAttribute(&SessionDocument, entry, u"name", &name);
    for (DWORD parm = 1; parm <= PF_PARMS && filter->Parms[parm - 1].pszName; ++parm)
        tovSetProfilePFParmValue(slot, parm, filter->Parms[parm - 1].pszDefault);
    return slot;
}

DWORD DeleteFilter(DWORD slot) {
    TovLockGuard lock;
    ProfileNode processing = Processing();
    if (!processing || !ChainTable[slot - 1].dwID) return tovErrorUnknown;
    std::memmove(&ChainTable[slot - 1], &ChainTable[slot], sizeof(ChainSlot) * (CHAIN_SLOTS - slot));
    std::memset(&ChainTable[CHAIN_SLOTS - 1], 0, sizeof(ChainSlot));
    if (ProfileNode entry = ChainEntry(processing, slot)) {
        bool removed = pdoc::RemoveChild(processing, entry);
        ASSERT(removed);
    }
    return tovOk;
}

DWORD GetParameter(DWORD slot, DWORD parm, WCHAR* value, DWORD length) {
    TovLockGuard lock;
    const WCHAR* name;
    ProfileNode entry;
    if (DWORD result = FindParameter(slot, parm, &name, &entry)) return result;
    ProfileValue text;
    if (pdoc::GetKey(entry, name, &text)) return tovErrorUnknown;
    ASSERT(text.text);
    // As wcsncpy: the rest of the buffer zero, no terminator for a long text.
    DWORD i = 0;
    for (; i < length && text.text[i]; ++i) value[i] = text.text[i];
    for (; i < length; ++i) value[i] = 0;
    return tovOk;
}

DWORD SetParameter(DWORD slot, DWORD parm, const WCHAR* value) {
    TovLockGuard lock;
    const WCHAR* name;
    ProfileNode entry;
    if (DWORD result = FindParameter(slot, parm, &name, &entry)) return result;
    ProfileValue text(value);
    if (!ApplyPfParm(slot, name, &text)) return tovErrorUnknown;
    ProfileValue copy(text.AsText());
    return pdoc::SetKey(&SessionDocument, entry, name, &copy) ? tovErrorUnknown : tovOk;
}

}  // namespace

extern "C" {

DWORD tovGetProfileList(const WCHAR* file, WCHAR* names, DWORD capacity) {
    if ((file && tovCannotRead(file)) || (capacity >= kListEntry && tovCannotRead(names)))
        return 0;
    return ProfileGuarded([=]() -> DWORD {
        PrivateDocument list;
        if (!list.Load(file)) return 0;
        DWORD count = 0;
        for (ProfileNode p = pdoc::NextChild(list.doc.Root, ProfileNode(), ProfileNodeElement, nullptr, nullptr, nullptr);
             p; p = pdoc::NextChild(list.doc.Root, p, ProfileNodeElement, nullptr, nullptr, nullptr)) {
            ProfileValue name;
            if (pdoc::GetAttribute(p, u"name", &name)) continue;
            if (count < capacity / kListEntry) {
                WCHAR* entry = names + size_t(count) * kListEntry;
                DWORD i = 0;
                for (; i < kListEntry && name.text[i]; ++i) entry[i] = name.text[i];
                for (; i < kListEntry; ++i) entry[i] = 0;
            }
            ++count;
        }
        return count;
    });
}

DWORD tovSaveProfile(const WCHAR* file, const WCHAR* name, DWORD flags) {
    if (tovCannotRead(name) || !name[0] || !NameStorable(name) || (file && tovCannotRead(file)))
        return DibErrorInvalidParm;
    return ProfileGuarded([=] { return SaveProfile(file, name, flags); });
}

DWORD tovDeleteProfile(const WCHAR* file, const WCHAR* name) {
    if (tovCannotRead(name) || !NameStorable(name) || (file && tovCannotRead(file)))
        return DibErrorInvalidParm;
    return ProfileGuarded([=] { return DeleteProfile(file, name); });
}

DWORD tovGetProfilePFID(DWORD slot) {
    if (!SlotInRange(slot)) return 0;
    TovLockGuard lock;
    return ChainTable[slot - 1].dwID;
}

DWORD tovAddProfilePF(DWORD position, DWORD id) {
    if (!PfCatalogEntry(id)) return 0;
    try {
        return AddFilter(position, id);
    } catch (...) {  // a text that could not be allocated: 0, as for any failure
        return 0;
    }
}

DWORD tovDeleteProfilePF(DWORD slot) {
    if (!SlotInRange(slot)) return DibErrorInvalidParm;
    return ProfileGuarded([=] { return DeleteFilter(slot); });
}

DWORD tovGetProfilePFParmValue(DWORD slot, DWORD parm, WCHAR* value, DWORD length) {
    if (!SlotInRange(slot) || tovCannotRead(value)) return DibErrorInvalidParm;
    return ProfileGuarded([=] { return GetParameter(slot, parm, value, length); });
}

DWORD tovSetProfilePFParmValue(DWORD slot, DWORD parm, const WCHAR* value) {
    if (!SlotInRange(slot) || tovCannotRead(value)) return DibErrorInvalidParm;
    return ProfileGuarded([=] { return SetParameter(slot, parm, value); });
}

}  // extern "C"
