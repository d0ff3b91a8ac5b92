// The profile document store over pugixml.
//
//   ProfileValue            the tagged text value and its memory failure
//   Load, Close, Save       the file, read and written through the platform
//   ScanChild, NextChild    the one walk over children; NextChild hides
//   FindSection             paths of sections, made on demand
//   Get/SetAttribute, Get/SetKey, CopyTree
//
// pugixml allocates through LocalAlloc, so the platform's fault seam reaches
// every node and attribute. Its calls never throw; a node or attribute it
// cannot make comes back empty, which the operations report as 232.
#include "profiledoc.h"

#include <cstring>
#include <string>

#include <tovrel/scopeguard.h>

namespace {

// pugixml's memory is the platform's, so that tests can fail any of it.
void* PugiAllocate(size_t bytes) { return LocalAlloc(LMEM_FIXED, bytes); }
void PugiDeallocate(void* p) { LocalFree(p); }
const bool g_pugiMemory = [] {
    pugi::set_memory_management_functions(PugiAllocate, PugiDeallocate);
    return true;
}();

// pugixml's strings are UTF-8, the library's UTF-16.
std::string Narrow(const WCHAR* text) {
    size_t n = PlatWideLength(text);
    std::string out(n * 3 + 1, '\0');
    size_t used = PlatWideToUtf8(text, &out[0], out.size());
    out.resize(used == size_t(-1) ? 0 : used);
    return out;
}

std::u16string Widen(const char* text) {
    std::u16string out(std::strlen(text) + 1, u'\0');
    size_t used = PlatUtf8ToWide(text, &out[0], out.size());
    out.resize(used == size_t(-1) ? 0 : used);
    return out;
}

bool SameText(const char* utf8, const WCHAR* wanted) { return _wcsicmp(Widen(utf8).c_str(), wanted) == 0; }

bool IsTextNode(const ProfileNode& node) { return node.type() == pugi::node_pcdata; }

DWORD TypeOf(const ProfileNode& node) {
    if (node.type() == pugi::node_element) return ProfileNodeElement;
    if (IsTextNode(node)) return ProfileNodeText;
    return 0;
}

// A new element of the given tag behind the children of parent.
ProfileNode AppendElement(ProfileNode parent, const char* tag) {
    ProfileNode node = parent.append_child(pugi::node_element);
    if (node && !node.set_name(tag)) {
        parent.remove_child(node);
        return ProfileNode();
    }
    return node;
}

// Collects the bytes that pugixml writes, through the platform's allocator.
struct BufferWriter : pugi::xml_writer {
    BYTE* data = nullptr;
    size_t size = 0, capacity = 0;
    bool failed = false;
    ~BufferWriter() override { LocalFree(data); }
    void write(const void* bytes, size_t n) override {
        if (failed) return;
        if (size + n > capacity) {
            size_t grown = capacity ? capacity * 2 : 4096;
            while (grown < size + n) grown *= 2;
            void* more = data ? LocalReAlloc(data, grown, LMEM_MOVEABLE) : LocalAlloc(LMEM_FIXED, grown);
            if (!more) {
                failed = true;
                return;
            }
            data = static_cast<BYTE*>(more);
            capacity = grown;
        }
        std::memcpy(data + size, bytes, n);
        size += n;
    }
};

// Indentation grows with depth: a file nested deeper than people write is
// saved without it, so that saving stays linear in the file's size.
constexpr int kIndentedDepthMax = 64;

bool NestedDeeperThan(const ProfileNode& root, int limit) {
    int depth = 0;
    for (ProfileNode n = root.first_child(); n;) {
        if (n.first_child()) {
            n = n.first_child();
            if (++depth > limit) return true;
            continue;
        }
        while (n && !n.next_sibling()) {
            n = n.parent();
            --depth;
            if (n == root) return false;
        }
        if (n) n = n.next_sibling();
    }
    return false;
}

constexpr unsigned kParseOptions = pugi::parse_default | pugi::parse_comments | pugi::parse_pi |
                                   pugi::parse_declaration | pugi::parse_doctype;

}  // namespace

// ---- ProfileValue ---------------------------------------------------------

void ProfileValue::Clear() {
    LocalFree(text);
    text = nullptr;
    number = 0;
    tag = ProfileValueEmpty;
}

void ProfileValue::SetText(const WCHAR* t) {
    Clear();
    if (!t) t = u"";
    size_t n = PlatWideLength(t) + 1;
    text = static_cast<WCHAR*>(LocalAlloc(LMEM_FIXED, n * sizeof(WCHAR)));
    if (!text) {
        tag = ProfileValueError;
        number = LONG(0x8007000E);  // E_OUTOFMEMORY
        throw ProfileMemoryFailure();
    }
    std::memcpy(text, t, n * sizeof(WCHAR));
    tag = ProfileValueText;
}

void ProfileValue::SetNumber(LONG n) {
    Clear();
    number = n;
    tag = ProfileValueNumber;
}

const WCHAR* ProfileValue::AsText() {
    if (tag == ProfileValueNumber) {
        WCHAR digits[16];
        _itow(int(number), digits, 10);
        SetText(digits);
    }
    return tag == ProfileValueText ? text : nullptr;
}

namespace pdoc {

DWORD Load(ProfileDocument* document, const WCHAR* path) {
    if (!document || !path) return ProfileErrorOpenFailed;
    Close(document);
    DWORD attributes = GetFileAttributesW(path);
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) return ProfileErrorOpenFailed;
    HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                              nullptr);
    if (file == INVALID_HANDLE_VALUE) return ProfileErrorOpenFailed;
    DWORD high = 0, size = GetFileSize(file, &high);
    void* bytes = nullptr;
    DWORD got = 0;
    bool read = high == 0 && size != INVALID_FILE_SIZE && size <= ProfileFileMaxBytes &&
                (bytes = LocalAlloc(LMEM_FIXED, size ? size : 1)) != nullptr &&
                ReadFile(file, bytes, size, &got, nullptr) && got == size;
    CloseHandle(file);
    TovScopeGuard freeBytes([bytes] { LocalFree(bytes); });
    if (!read) return ProfileErrorOpenFailed;
    void* place = LocalAlloc(LMEM_FIXED, sizeof(pugi::xml_document));
    if (!place) return ProfileErrorOpenFailed;
    document->Dom = new (place) pugi::xml_document();
    pugi::xml_parse_result parsed = document->Dom->load_buffer(bytes, size, kParseOptions, pugi::encoding_auto);
    if (!parsed) return ProfileErrorOpenFailed;  // Dom stays set: the caller closes it
    document->Root = document->Dom->document_element();
    return 0;
}

void Close(ProfileDocument* document) {
    if (!document || !document->Dom) return;
    document->Dom->~xml_document();
    LocalFree(document->Dom);
    document->Dom = nullptr;
    document->Root = ProfileNode();
}

DWORD Save(ProfileDocument* document, const WCHAR* path) {
    if (!document || !document->Dom || !path) return ProfileErrorInvalidParameter;
    BufferWriter out;
    unsigned format = NestedDeeperThan(*document->Dom, kIndentedDepthMax) ? pugi::format_raw : pugi::format_default;
    document->Dom->save(out, "\t", format, pugi::encoding_utf8);
    if (out.failed) return ProfileErrorNoData;
    HANDLE file = CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return ProfileErrorOpenFailed;
    for (size_t done = 0; done < out.size;) {
        DWORD chunk = out.size - done > 0x10000000 ? 0x10000000 : DWORD(out.size - done), written = 0;
        if (!WriteFile(file, out.data + done, chunk, &written, nullptr) || written != chunk) {
            PlatDiscardFile(file);  // the old file stays as it was
            return ProfileErrorNoData;
        }
        done += chunk;
    }
    return CloseHandle(file) ? 0 : ProfileErrorNoData;
}

LONG Flags(ProfileNode node) {
    pugi::xml_attribute flags = node.attribute("flags");
    return flags ? _wtol(Widen(flags.value()).c_str()) : 0;
}

ProfileNode ScanChild(ProfileNode parent, ProfileNode previous, DWORD type, const WCHAR* tag,
                      const WCHAR* attrName, const WCHAR* attrValue) {
    ProfileNode node = previous ? previous.next_sibling() : parent.first_child();
    std::string attribute = attrName && attrValue ? Narrow(attrName) : std::string();
    for (; node; node = node.next_sibling()) {
        if (TypeOf(node) != type) continue;
        if (tag && !SameText(node.name(), tag)) continue;
        if (attrName && attrValue) {
            pugi::xml_attribute a = node.attribute(attribute.c_str());
            if (!a || !SameText(a.value(), attrValue)) continue;
        }
        return node;
    }
    return ProfileNode();
}

ProfileNode NextChild(ProfileNode parent, ProfileNode previous, DWORD type, const WCHAR* tag,
                      const WCHAR* attrName, const WCHAR* attrValue) {
    ProfileNode node = ScanChild(parent, previous, type, tag, attrName, attrValue);
    while (node && type == ProfileNodeElement && (Flags(node) & ProfileFlagHidden))
        node = ScanChild(parent, node, type, tag, attrName, attrValue);
    return node;
}

ProfileNode FindSection(ProfileDocument* document, ProfileNode start, const WCHAR* path, bool create) {
    if (!document || !path) return ProfileNode();
    ProfileNode current = start ? start : document->Root;
    if (!current) return ProfileNode();
    std::u16string rest(path);
    for (size_t at = 0;;) {
        size_t slash = rest.find(u'/', at);
        std::u16string component = rest.substr(at, slash == std::u16string::npos ? std::u16string::npos : slash - at);
        ProfileNode found = NextChild(current, ProfileNode(), ProfileNodeElement, u"Section", u"name", component.c_str());
        if (!found) {
            if (!create) return ProfileNode();
            found = AppendElement(current, "Section");
            if (!found) return ProfileNode();
            ProfileValue name(component.c_str());
            SetAttribute(document, found, u"name", &name);
        }
        if (slash == std::u16string::npos) return found;
        current = found;
        at = slash + 1;
    }
}

DWORD GetAttribute(ProfileNode node, const WCHAR* name, ProfileValue* value) {
    if (!node || !name || !value) return ProfileErrorInvalidParameter;
    pugi::xml_attribute a = node.attribute(Narrow(name).c_str());
    if (!a) return ProfileErrorNoData;
    value->SetText(Widen(a.value()).c_str());
    return 0;
}

DWORD SetAttribute(ProfileDocument*, ProfileNode node, const WCHAR* name, ProfileValue* value) {
    struct Clearer {
        ProfileValue* v;
        ~Clearer() {
            if (v) v->Clear();
        }
    } clear{value};
    if (!node || !name || !value || node.type() != pugi::node_element) return ProfileErrorInvalidParameter;
    const WCHAR* text = value->AsText();
    if (!text) return ProfileErrorNoData;
    std::string key = Narrow(name);
    pugi::xml_attribute a = node.attribute(key.c_str());
    if (!a) a = node.append_attribute(key.c_str());
    return a && a.set_value(Narrow(text).c_str()) ? 0 : ProfileErrorNoData;
}

DWORD GetKey(ProfileNode section, const WCHAR* name, ProfileValue* value) {
    if (!section || !name || !value) return ProfileErrorInvalidParameter;
    ProfileNode key = NextChild(section, ProfileNode(), ProfileNodeElement, u"Key", u"name", name);
    if (!key) return ProfileErrorNoData;
    ProfileNode text = NextChild(key, ProfileNode(), ProfileNodeText, nullptr, nullptr, nullptr);
    if (!text) return ProfileErrorNoData;
    value->SetText(Widen(text.value()).c_str());
    return 0;
}

DWORD SetKey(ProfileDocument* document, ProfileNode section, const WCHAR* name, ProfileValue* value) {
    struct Clearer {
        ProfileValue* v;
        ~Clearer() {
            if (v) v->Clear();
        }
    } clear{value};
    if (!section || !name || !value) return ProfileErrorInvalidParameter;
    ProfileNode key = NextChild(section, ProfileNode(), ProfileNodeElement, u"Key", u"name", name);
    if (!key) {
        key = AppendElement(section, "Key");
        if (!key) return ProfileErrorNoData;
        ProfileValue keyName(name);
        SetAttribute(document, key, u"name", &keyName);
    }
    const WCHAR* text = value->AsText();
    if (!text) return ProfileErrorNoData;
    std::string utf8 = Narrow(text);
    ProfileNode node = NextChild(key, ProfileNode(), ProfileNodeText, nullptr, nullptr, nullptr);
    if (node) return node.set_value(utf8.c_str()) ? 0 : ProfileErrorNoData;
    node = key.append_child(pugi::node_pcdata);
    return node && node.set_value(utf8.c_str()) ? 0 : ProfileErrorNoData;
}

ProfileNode AddElement(ProfileNode parent, ProfileNode before, const WCHAR* tag) {
    if (!parent || !tag) return ProfileNode();
    ProfileNode node = before ? parent.insert_child_before(pugi::node_element, before) : parent.append_child(pugi::node_element);
    if (node && !node.set_name(Narrow(tag).c_str())) {
        parent.remove_child(node);
        return ProfileNode();
    }
    return node;
}

bool RemoveChild(ProfileNode parent, ProfileNode child) {
    return parent && child && child.parent() == parent && parent.remove_child(child);
}

// Depth first without recursion, so that a deeply nested file cannot
// exhaust the stack: each source node is copied under the copy of its
// parent, hidden nodes and text included; a node that cannot be copied is
// passed over with what lies under it.
ProfileNode CopyTree(ProfileNode source, ProfileNode parent) {
    if (!source || !parent) return ProfileNode();
    auto cloneOne = [](ProfileNode from, ProfileNode under) {
        ProfileNode made = under.append_child(from.type());
        if (!made) return made;
        bool ok = (!*from.name() || made.set_name(from.name())) && (!*from.value() || made.set_value(from.value()));
        for (pugi::xml_attribute a = from.first_attribute(); ok && a; a = a.next_attribute()) {
            pugi::xml_attribute b = made.append_attribute(a.name());
            ok = b && b.set_value(a.value());
        }
        if (!ok) {
            under.remove_child(made);
            return ProfileNode();
        }
        return made;
    };
    ProfileNode top = cloneOne(source, parent);
    if (!top) return top;
    ProfileNode from = source.first_child(), to = top;
    while (from && from != source) {
        ProfileNode made = cloneOne(from, to);
        if (made && from.first_child()) {
            from = from.first_child();
            to = made;
            continue;
        }
        // Up to the first ancestor (below source) that has a next sibling.
        while (from != source && !from.next_sibling()) {
            from = from.parent();
            if (from != source) to = to.parent();
        }
        if (from == source) break;
        from = from.next_sibling();
    }
    return top;
}

}  // namespace pdoc
