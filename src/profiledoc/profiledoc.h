/*
 * The profile document store: the XML profile file as a small set of
 * operations over pugixml. Names and tags match without regard to case,
 * hidden elements ("flags" bit 1) are passed over by every lookup, paths
 * with "/" walk nested sections, and keys and sections are made where they
 * are missing. Text values are UTF-16; the file is UTF-8 (any encoding
 * pugixml reads is accepted).
 *
 * The operations take no lock: the session's document is guarded by its
 * callers. Results are 0 or one of the three numbers below; no caller tells
 * them apart. A text value that cannot be allocated throws
 * ProfileMemoryFailure, which the exports turn into result 6.
 */
#ifndef TOVREL_PROFILEDOC_H
#define TOVREL_PROFILEDOC_H

#include <tovrel/platform.h>

#include <pugixml.hpp>

#define ProfileFlagHidden 1u
#define ProfileFlagReadOnly 8u

/* The kinds of node a lookup asks for. */
#define ProfileNodeElement 1u
#define ProfileNodeText 3u

/* Results of the operations. */
#define ProfileErrorInvalidParameter 87u /* a null node, name or output */
#define ProfileErrorOpenFailed 110u      /* Load, for any reason */
#define ProfileErrorNoData 232u          /* missing, or the XML library refused */

/* The largest profile file read: far beyond any real one, and it bounds
 * what a load can take. */
#define ProfileFileMaxBytes (16u << 20)

/* A node of an open document; an empty node is "none". */
typedef pugi::xml_node ProfileNode;

/* Thrown when a text value cannot be allocated. */
struct ProfileMemoryFailure {};

/* The tagged text value the operations exchange. It owns its text. */
enum ProfileValueTag : DWORD {
    ProfileValueEmpty = 0,
    ProfileValueNumber = 3, /* a signed 32-bit integer */
    ProfileValueText = 8,
    ProfileValueError = 10, /* after a failed allocation */
};
struct ProfileValue {
    DWORD tag = ProfileValueEmpty;
    WCHAR* text = nullptr;
    LONG number = 0;

    ProfileValue() = default;
    explicit ProfileValue(const WCHAR* t) { SetText(t); }
    ~ProfileValue() { Clear(); }
    ProfileValue(const ProfileValue&) = delete;
    ProfileValue& operator=(const ProfileValue&) = delete;

    void Clear();
    /* Copies t (NULL: an empty text); throws ProfileMemoryFailure. */
    void SetText(const WCHAR* t);
    void SetNumber(LONG n);
    /* The value as text: the text, a number in decimal; NULL otherwise.
     * Throws like SetText. */
    const WCHAR* AsText();
};

struct ProfileDocument {
    pugi::xml_document* Dom = nullptr; /* null: closed */
    ProfileNode Root;
};

namespace pdoc {

/* 0, or 110 when the file is missing, unreadable, too large or not XML. */
DWORD Load(ProfileDocument* document, const WCHAR* path);
void Close(ProfileDocument* document);
/* 0, or not 0 when the document cannot be written. Writes a temporary
 * beside the file and renames it over it, so the old file survives any
 * failure. */
DWORD Save(ProfileDocument* document, const WCHAR* path);
ProfileNode FindSection(ProfileDocument* document, ProfileNode start, const WCHAR* path, bool create);
ProfileNode ScanChild(ProfileNode parent, ProfileNode previous, DWORD type, const WCHAR* tag,
                      const WCHAR* attrName, const WCHAR* attrValue);
ProfileNode NextChild(ProfileNode parent, ProfileNode previous, DWORD type, const WCHAR* tag,
                      const WCHAR* attrName, const WCHAR* attrValue);
DWORD GetAttribute(ProfileNode node, const WCHAR* name, ProfileValue* value);
/* Takes the value over and clears it on every path. */
DWORD SetAttribute(ProfileDocument* document, ProfileNode node, const WCHAR* name, ProfileValue* value);
DWORD GetKey(ProfileNode section, const WCHAR* name, ProfileValue* value);
/* Takes the value over and clears it on every path. */
DWORD SetKey(ProfileDocument* document, ProfileNode section, const WCHAR* name, ProfileValue* value);
ProfileNode CopyTree(ProfileNode source, ProfileNode parent);
/* A new element of the tag under parent: before `before`, or behind the
 * last child when `before` is empty. Empty when it cannot be made. */
ProfileNode AddElement(ProfileNode parent, ProfileNode before, const WCHAR* tag);
/* Takes a child, with everything under it, out of its parent. */
bool RemoveChild(ProfileNode parent, ProfileNode child);

/* The "flags" attribute read as a number; 0 when it is absent. */
LONG Flags(ProfileNode node);

}  // namespace pdoc

#endif
