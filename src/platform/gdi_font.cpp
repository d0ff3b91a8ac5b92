// Fonts: CreateFontIndirectW over FreeType, with fontconfig choosing the
// file for the face name and weight.
//
// A face name that no installed font carries resolves to the best match of
// the generic "sans-serif" family at the weight asked for (with the Debian
// fonts, DejaVu Sans Bold for "TACOMA" at weight 600). When the file found
// is lighter than the weight asked for, glyphs are emboldened. Each font
// holds its own FreeType instance, so fonts can be used on any thread.
// fontconfig is asked once for each face name, weight and slant: the answer
// is kept in a small table (it is slow, and it does not survive memory
// running short), emptied when the configuration changes.
// FreeType allocates with malloc: it drops optional tables silently when an
// allocation fails and is not safe to fault at every one of its sites, so
// the fault seam stops at our own objects. fontconfig's state is released
// at exit, so that leak checkers see a clean end.
#include "gdidc.h"

#include <ft2build.h>
#include FT_FREETYPE_H
#include <fontconfig/fontconfig.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

constexpr size_t kMaxFontPath = 4096;

// ---- fontconfig ------------------------------------------------------------------
std::mutex g_fcMutex;
FcConfig* g_testConfig = nullptr;  // PlatSetFontConfigFile; NULL: the system's
bool g_fcExitHook = false;

void ForgetFaces();

void ReleaseFontconfig() {
    std::lock_guard<std::mutex> lock(g_fcMutex);
    if (g_testConfig) FcConfigDestroy(g_testConfig);
    g_testConfig = nullptr;
    ForgetFaces();
    FcFini();
}

// Registers the release of fontconfig's caches at exit; g_fcMutex is held.
void HookExit() {
    if (!g_fcExitHook) {
        g_fcExitHook = true;
        std::atexit(ReleaseFontconfig);
    }
}

struct FcMatch {
    char path[kMaxFontPath];
    int index;
    bool embolden;
};

// ---- the answers kept --------------------------------------------------------------
struct FaceKey {
    WCHAR name[LF_FACESIZE + 1];
    int weight;
    bool italic;
    bool operator==(const FaceKey& o) const {
        return weight == o.weight && italic == o.italic && std::memcmp(name, o.name, sizeof name) == 0;
    }
};
struct CachedFace {
    bool used;
    FaceKey key;
    FcMatch match;
};
// A handful of faces in use at once is the most an application has; a new
// one takes the slots in turn. g_fcMutex guards the table.
constexpr size_t kCachedFaces = 8;
CachedFace g_faces[kCachedFaces];
size_t g_nextFace = 0;

void ForgetFaces() {
    for (CachedFace& f : g_faces) f.used = false;
}

// Asks fontconfig for the file of a face name and weight; g_fcMutex is held.
bool Match(const char* family, int weight, bool italic, FcMatch* out) {
    FcPattern* pattern = FcPatternCreate();
    if (!pattern) return false;
    bool ok = true;
    if (family[0]) ok = FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(family));
    // The generic family stands behind the name, so an absent face falls
    // back to a sans serif rather than to whatever the system prefers.
    ok = ok && FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>("sans-serif"));
    ok = ok && FcPatternAddInteger(pattern, FC_WEIGHT, FcWeightFromOpenType(weight));
    ok = ok && FcPatternAddInteger(pattern, FC_SLANT, italic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
    ok = ok && FcPatternAddBool(pattern, FC_SCALABLE, FcTrue);
    FcPattern* match = nullptr;
    if (ok && FcConfigSubstitute(g_testConfig, pattern, FcMatchPattern)) {
        FcDefaultSubstitute(pattern);
        FcResult result;
        match = FcFontMatch(g_testConfig, pattern, &result);
    }
    FcPatternDestroy(pattern);
    if (!match) return false;

    FcChar8* file = nullptr;
    int matchedWeight = 0;
    FcBool embolden = FcFalse;
    ok = FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch && file &&
         std::strlen(reinterpret_cast<char*>(file)) < sizeof out->path;
    if (ok) {
        std::strcpy(out->path, reinterpret_cast<char*>(file));
        if (FcPatternGetInteger(match, FC_INDEX, 0, &out->index) != FcResultMatch) out->index = 0;
        if (FcPatternGetBool(match, FC_EMBOLDEN, 0, &embolden) != FcResultMatch) embolden = FcFalse;
        if (FcPatternGetInteger(match, FC_WEIGHT, 0, &matchedWeight) != FcResultMatch) matchedWeight = FC_WEIGHT_REGULAR;
        out->embolden = embolden || (weight >= 600 && matchedWeight < FC_WEIGHT_DEMIBOLD);
    }
    FcPatternDestroy(match);
    return ok;
}

// Finds the file for a face name and weight. False when no font matches.
bool Resolve(const LOGFONTW& lf, FcMatch* out) {
    FaceKey key;
    std::memset(&key, 0, sizeof key);
    std::memcpy(key.name, lf.lfFaceName, sizeof lf.lfFaceName);
    key.weight = lf.lfWeight <= 0 ? FW_NORMAL : (lf.lfWeight > 1000 ? 1000 : int(lf.lfWeight));
    key.italic = lf.lfItalic != 0;
    char family[LF_FACESIZE * 4 + 1];
    if (PlatWideToUtf8(key.name, family, sizeof family) == size_t(-1)) return false;

    std::lock_guard<std::mutex> lock(g_fcMutex);
    HookExit();
    for (const CachedFace& f : g_faces) {
        if (f.used && f.key == key) {
            *out = f.match;
            return true;
        }
    }
    if (!Match(family, key.weight, key.italic, out)) return false;  // not kept: a later call may succeed
    CachedFace& slot = g_faces[g_nextFace];
    g_nextFace = (g_nextFace + 1) % kCachedFaces;
    slot.used = true;
    slot.key = key;
    slot.match = *out;
    return true;
}

void DestroyFont(GdiObjectTag* self) {
    auto* font = static_cast<GdiFont*>(self);
    GdiFontUnload(font);
    PlatFree(font);
}

int DescribeFont(GdiObjectTag* self, int bytes, void* out) {
    return GdiDescribeAs(static_cast<GdiFont*>(self)->logFont, bytes, out);
}

}  // namespace

bool GdiFontLoad(GdiFont* font, const LOGFONTW* lf) {
    LONG height = lf->lfHeight;
    if (height < -kGdiMaxFontHeight || height > kGdiMaxFontHeight) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    FcMatch match;
    if (!Resolve(*lf, &match)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return false;
    }
    FT_Library library = nullptr;
    if (FT_Init_FreeType(&library)) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
    FT_Face face = nullptr;
    if (FT_New_Face(library, match.path, match.index, &face)) {
        FT_Done_FreeType(library);
        SetLastError(ERROR_FILE_NOT_FOUND);
        return false;
    }
    // Positive heights are cell heights (ascender to descender), negative
    // ones character heights (the em), 0 a default of 16 pixels a cell.
    FT_Size_RequestRec request;
    std::memset(&request, 0, sizeof request);
    request.type = height < 0 ? FT_SIZE_REQUEST_TYPE_NOMINAL : FT_SIZE_REQUEST_TYPE_CELL;
    request.height = FT_Long(height == 0 ? 16 : (height < 0 ? -height : height)) * 64;
    if (!FT_IS_SCALABLE(face) || FT_Request_Size(face, &request)) {
        FT_Done_Face(face);
        FT_Done_FreeType(library);
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    font->logFont = *lf;
    font->library = library;
    font->face = face;
    font->embolden = match.embolden;
    const FT_Size_Metrics& m = face->size->metrics;
    if (height >= 0) {
        // A cell height is kept exactly, as the device does: lines are that
        // far apart. The descender gets its whole pixels below the baseline,
        // since hinting rounds descenders down; the ascender has spare room
        // for accents, so what rounding takes comes off the top.
        font->lineHeight = height == 0 ? 16 : int(height);
        // (An eighth of a pixel over a whole one is no reason for another row.)
        const int descent = int((-FT_MulFix(face->descender, m.y_scale) + 63 - 8) >> 6);
        font->ascent = font->lineHeight - descent;
    } else {
        font->ascent = int((m.ascender + 63) >> 6);
        font->lineHeight = font->ascent + int((-m.descender + 63) >> 6);
    }
    if (font->lineHeight < 1) font->lineHeight = 1;
    return true;
}

void GdiFontUnload(GdiFont* font) {
    if (font->face) FT_Done_Face(font->face);
    if (font->library) FT_Done_FreeType(font->library);
    font->face = nullptr;
    font->library = nullptr;
}

void GdiStockFontInit(GdiFont* font) {
    font->type = GDI_FONT;
    font->destroy = nullptr;
    font->describe = DescribeFont;
    font->face = nullptr;
    font->library = nullptr;
}

extern "C" {

HFONT CreateFontIndirectW(const LOGFONTW* lf) {
    if (!lf || IsBadReadPtr(lf, sizeof(LOGFONTW))) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto* font = PlatNew<GdiFont>();
    if (!font) return nullptr;
    if (!GdiFontLoad(font, lf)) {
        PlatFree(font);
        return nullptr;
    }
    font->type = GDI_FONT;
    font->destroy = DestroyFont;
    font->describe = DescribeFont;
    GdiRegister(font);
    return font;
}

BOOL PlatSetFontConfigFile(const char* file) {
    FcConfig* config = nullptr;
    if (file) {
        config = FcConfigCreate();
        if (!config) return FALSE;
        if (!FcConfigParseAndLoad(config, reinterpret_cast<const FcChar8*>(file), FcTrue) ||
            !FcConfigBuildFonts(config)) {
            FcConfigDestroy(config);
            return FALSE;
        }
    }
    std::lock_guard<std::mutex> lock(g_fcMutex);
    HookExit();
    if (g_testConfig) FcConfigDestroy(g_testConfig);
    g_testConfig = config;
    ForgetFaces();
    return TRUE;
}

}  // extern "C"
