// JPEG files through libjpeg (interface 62): baseline grey files out, any
// 8-bit file that libjpeg can reduce to grey in.
//
// Contents: the error manager (error_exit jumps back to the call), a source
// and a destination manager over the platform's file handles, the save's
// steps, the load's decoder, DibJPGSave, DibJPGLoad.
//
// libjpeg leaves through longjmp on every error. Each step that calls it
// sets its own jump point and answers false; no object with a destructor
// lives inside a step, and the scope guards that clean up live in the
// callers, outside every jump.
#include "dibload.h"
#include "imagefiles.h"

#include <csetjmp>
#include <cstdio>  // jpeglib.h needs FILE and size_t declared first
#include <cstdint>
#include <cstring>
#include <jerror.h>
#include <jpeglib.h>
#include <tovrel/scopeguard.h>

namespace {

constexpr DWORD kJpegIoBytes = 16384;  // one ReadFile or WriteFile of libjpeg's data
// libjpeg's whole-image buffers (progressive and multi-scan files) are held
// to the largest pixel store: beyond it libjpeg fails for want of a backing
// store instead of taking gigabytes for a few hundred bytes of header.
constexpr long kJpegMaxWorkBytes = long(DIB_MAX_BITS_BYTES);

// The error manager of one call, followed by its jump buffer.
struct DibJPGErrorManager {
    struct jpeg_error_mgr pub;
    jmp_buf jump;
};

void DibJPGErrorExit(j_common_ptr cinfo) {
    longjmp(reinterpret_cast<DibJPGErrorManager*>(cinfo->err)->jump, 1);
}

// Messages go to the trace, never to standard error.
void DibJPGOutputMessage(j_common_ptr cinfo) {
    char text[JMSG_LENGTH_MAX];
    cinfo->err->format_message(cinfo, text);
    DebugTrace(DIB_LEVEL_OP, u"   ?libjpeg:%hs\r\n", text);
}

// libjpeg reports a file that ends early, and corrupt entropy-coded data,
// only as warnings and pads the picture with grey; here they fail the load
// like any other damage that stops the decoder. Other warnings (a bogus
// progression, an odd marker) are traced and the picture is kept.
bool IsDamage(int code) {
    switch (code) {
    case JWRN_JPEG_EOF:
    case JWRN_HIT_MARKER:
    case JWRN_HUFF_BAD_CODE:
    case JWRN_MUST_RESYNC:
    case JWRN_EXTRANEOUS_DATA:
        return true;
    default:
        return false;
    }
}

void DibJPGEmitMessage(j_common_ptr cinfo, int level) {
    if (level >= 0) return;
    if (IsDamage(cinfo->err->msg_code)) cinfo->err->error_exit(cinfo);
    if (cinfo->err->num_warnings++ == 0) cinfo->err->output_message(cinfo);
}

// A Huffman-coded scan spends at least one bit on each 8x8 block of every
// component it carries (the DC code of a baseline or first progressive
// scan), and the first scan carries at least one component: a file shorter
// than that for its smallest component cannot hold the picture it declares.
// Arithmetic coding has no such floor.
int64_t LeastBytesForBlocks(j_decompress_ptr cinfo) {
    if (cinfo->arith_code || cinfo->num_components <= 0) return 0;
    int64_t fewest = INT64_MAX;
    for (int c = 0; c < cinfo->num_components; ++c) {
        const jpeg_component_info& comp = cinfo->comp_info[c];
        int64_t blocks = int64_t(comp.width_in_blocks) * int64_t(comp.height_in_blocks);
        if (blocks < fewest) fewest = blocks;
    }
    return fewest / 8;
}

void SetUpErrors(DibJPGErrorManager* err) {
    jpeg_std_error(&err->pub);
    err->pub.error_exit = DibJPGErrorExit;
    err->pub.emit_message = DibJPGEmitMessage;
    err->pub.output_message = DibJPGOutputMessage;
}

// ---- source manager ---------------------------------------------------------

struct DibJPGSource {
    struct jpeg_source_mgr pub;
    HANDLE file;
    JOCTET buffer[kJpegIoBytes];
};

void SourceInit(j_decompress_ptr) {}
void SourceTerm(j_decompress_ptr) {}

// The end of the file inside the picture is an error (see DibJPGEmitMessage).
boolean SourceFill(j_decompress_ptr cinfo) {
    auto* src = reinterpret_cast<DibJPGSource*>(cinfo->src);
    DWORD got = 0;
    if (!ReadFile(src->file, src->buffer, kJpegIoBytes, &got, nullptr) || got == 0)
        ERREXIT(cinfo, JERR_INPUT_EOF);
    src->pub.next_input_byte = src->buffer;
    src->pub.bytes_in_buffer = got;
    return TRUE;
}

void SourceSkip(j_decompress_ptr cinfo, long count) {
    if (count <= 0) return;
    struct jpeg_source_mgr* src = cinfo->src;
    while (size_t(count) > src->bytes_in_buffer) {
        count -= long(src->bytes_in_buffer);
        SourceFill(cinfo);
    }
    src->next_input_byte += count;
    src->bytes_in_buffer -= size_t(count);
}

void UseSource(j_decompress_ptr cinfo, DibJPGSource* src, HANDLE file) {
    src->pub.init_source = SourceInit;
    src->pub.fill_input_buffer = SourceFill;
    src->pub.skip_input_data = SourceSkip;
    src->pub.resync_to_restart = jpeg_resync_to_restart;
    src->pub.term_source = SourceTerm;
    src->pub.next_input_byte = nullptr;
    src->pub.bytes_in_buffer = 0;
    src->file = file;
    cinfo->src = &src->pub;
}

// ---- destination manager ----------------------------------------------------

struct DibJPGDestination {
    struct jpeg_destination_mgr pub;
    HANDLE file;
    JOCTET buffer[kJpegIoBytes];
};

void DestinationInit(j_compress_ptr cinfo) {
    auto* dest = reinterpret_cast<DibJPGDestination*>(cinfo->dest);
    dest->pub.next_output_byte = dest->buffer;
    dest->pub.free_in_buffer = kJpegIoBytes;
}

void WriteAll(j_compress_ptr cinfo, const JOCTET* data, DWORD bytes) {
    auto* dest = reinterpret_cast<DibJPGDestination*>(cinfo->dest);
    DWORD written = 0;
    if (!WriteFile(dest->file, data, bytes, &written, nullptr) || written != bytes)
        ERREXIT(cinfo, JERR_FILE_WRITE);
}

// libjpeg calls this with a full buffer, whatever free_in_buffer says.
boolean DestinationEmpty(j_compress_ptr cinfo) {
    auto* dest = reinterpret_cast<DibJPGDestination*>(cinfo->dest);
    WriteAll(cinfo, dest->buffer, kJpegIoBytes);
    dest->pub.next_output_byte = dest->buffer;
    dest->pub.free_in_buffer = kJpegIoBytes;
    return TRUE;
}

void DestinationTerm(j_compress_ptr cinfo) {
    auto* dest = reinterpret_cast<DibJPGDestination*>(cinfo->dest);
    DWORD bytes = DWORD(kJpegIoBytes - dest->pub.free_in_buffer);
    if (bytes) WriteAll(cinfo, dest->buffer, bytes);
}

void UseDestination(j_compress_ptr cinfo, DibJPGDestination* dest, HANDLE file) {
    dest->pub.init_destination = DestinationInit;
    dest->pub.empty_output_buffer = DestinationEmpty;
    dest->pub.term_destination = DestinationTerm;
    dest->file = file;
    cinfo->dest = &dest->pub;
}

// ---- the save's libjpeg steps --------------------------------------------------
// Each returns false when libjpeg failed; they keep no object with a
// destructor alive across libjpeg's jump.

bool CreateCompressor(j_compress_ptr cinfo, DibJPGErrorManager* err) {
    if (setjmp(err->jump)) return false;
    jpeg_create_compress(cinfo);
    return true;
}

bool Compress(j_compress_ptr cinfo, DibJPGErrorManager* err, DibJPGDestination* dest, HANDLE file, HDIB source,
              DWORD quality) {
    if (setjmp(err->jump)) return false;
    UseDestination(cinfo, dest, file);
    LONG width = DibWidth(source), height = DibHeight(source);
    cinfo->image_width = JDIMENSION(width);
    cinfo->image_height = JDIMENSION(height);
    cinfo->input_components = 1;
    cinfo->in_color_space = JCS_GRAYSCALE;
    jpeg_set_defaults(cinfo);
    jpeg_set_quality(cinfo, int(quality > DIB_JPG_MAX_QUALITY ? DIB_JPG_MAX_QUALITY : quality), TRUE);
    jpeg_start_compress(cinfo, TRUE);
    // Row bytes are samples: the colour table plays no part.
    for (LONG y = 0; y < height; ++y) jpeg_write_scanlines(cinfo, &source->ppRow[y], 1);
    jpeg_finish_compress(cinfo);
    return true;
}

// ---- the load's decoder -----------------------------------------------------

const DibLoadTexts kJpegTexts = {
    u">DibJPGLoad(%s)\r\n",
    u"<DibJPGLoad()=NULL (CreateFile)\r\n",
    u"<DibJPGLoad()=NULL (LocalAlloc)\r\n",
    u"<DibJPGLoad()=NULL (DibCreateFromBitmapInfo)\r\n",
    u"<DibJPGLoad()\r\n",
};

// libjpeg's state of one load; every error jumps back to the step that is
// reading, which keeps no object with a destructor alive across the jump.
class JpegDecoder : public DibFileDecoder {
public:
    JpegDecoder() {
        std::memset(&cinfo_, 0, sizeof cinfo_);  // so that a destroy after an early jump is harmless
        SetUpErrors(&err_);
        cinfo_.err = &err_.pub;
    }
    ~JpegDecoder() override { jpeg_destroy_decompress(&cinfo_); }

    bool ReadHeader(HANDLE file, int64_t, DibDeclaredPicture* picture) override {
        if (setjmp(err_.jump)) return Failed();
        jpeg_create_decompress(&cinfo_);
        cinfo_.mem->max_memory_to_use = kJpegMaxWorkBytes;
        UseSource(&cinfo_, &src_, file);
        jpeg_read_header(&cinfo_, TRUE);
        // One byte a pixel: colour files come out as their luminance; what
        // libjpeg cannot reduce to grey (CMYK) fails in jpeg_start_decompress.
        cinfo_.out_color_space = JCS_GRAYSCALE;
        // The bitmap core refuses sizes beyond its limits before anything
        // large is allocated, by us or by libjpeg.
        picture->width = LONG(cinfo_.image_width);
        picture->height = LONG(cinfo_.image_height);
        picture->bitcount = 8;
        picture->leastFileBytes = LeastBytesForBlocks(&cinfo_);
        return true;
    }

    void TraceTooShort(const DibDeclaredPicture& picture) override {
        DebugTrace(DIB_LEVEL_OP, u"   !DibJPGLoad():%dx%d:file too short\r\n", int(picture.width),
                   int(picture.height));
        DebugTrace(DIB_LEVEL_OP, u"<DibJPGLoad()=NULL (Error=%d)\r\n", int(JERR_INPUT_EOF));
    }

    bool ReadPixels(HDIB hdib) override {
        if (setjmp(err_.jump)) return Failed();
        jpeg_start_decompress(&cinfo_);
        if (cinfo_.output_components != 1 || cinfo_.output_width != cinfo_.image_width ||
            cinfo_.output_height != cinfo_.image_height)
            ERREXIT(&cinfo_, JERR_CONVERSION_NOTIMPL);
        while (cinfo_.output_scanline < cinfo_.output_height) {
            // Straight into the bitmap's row; our source never suspends, so a
            // call that delivers nothing means a broken stream.
            if (jpeg_read_scanlines(&cinfo_, &hdib->ppRow[cinfo_.output_scanline], 1) != 1)
                ERREXIT(&cinfo_, JERR_INPUT_EMPTY);
        }
        jpeg_finish_decompress(&cinfo_);
        DibDump(hdib);
        return true;
    }

private:
    bool Failed() {
        DebugTrace(DIB_LEVEL_OP, u"<DibJPGLoad()=NULL (Error=%d)\r\n", err_.pub.msg_code);
        return false;
    }

    struct jpeg_decompress_struct cinfo_;
    DibJPGErrorManager err_;
    DibJPGSource src_;
};

}  // namespace

extern "C" {

DWORD DibJPGSave(const WCHAR* filename, DWORD quality, HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u">DibJPGSave(%s, %d, %lld)\r\n", filename, quality, TRACE_PTR(hdib));
    if (DibIsInvalid(hdib) || !DibHasBitmap(hdib)) return DibErrorInvalidDIB;
    if (!filename) {
        DebugError(u"<DibJPGSave()=DibErrorInvalidParm\r\n");
        return DibErrorInvalidParm;
    }

    // libjpeg takes one grey byte a pixel: anything else goes through an
    // 8-bit temporary, and the caller's bitmap is left as it is.
    HDIB temp = nullptr;
    if (DibBitCount(hdib) != 8 || DibNumColors(hdib) != 256) {
        DebugTrace(DIB_LEVEL_OP, u"   >DibBitCount(hdib)!=8\r\n");
        temp = DibCreateCopy(hdib);
        if (!temp) {
            DebugError(u"<DibJPGSave()=DibErrorUnknown (DibCreateCopy)\r\n");
            return DibErrorUnknown;
        }
        if (DibConvert(temp, 8) != DibOk) {
            DebugError(u"<DibJPGSave()=DibErrorUnknown (DibConvert)\r\n");
            DibUnload(temp);
            return DibErrorUnknown;
        }
    }
    // The copy goes last, after the exit trace of a failure, before that of
    // a success.
    TovScopeGuard unloadTemp([temp] {
        if (temp) DibUnload(temp);
    });
    HDIB const source = temp ? temp : hdib;

    struct jpeg_compress_struct cinfo;
    DibJPGErrorManager err;
    DibJPGDestination dest;
    std::memset(&cinfo, 0, sizeof cinfo);  // so that a destroy after an early jump is harmless
    SetUpErrors(&err);
    cinfo.err = &err.pub;
    TovScopeGuard destroyCompressor([&cinfo] { jpeg_destroy_compress(&cinfo); });
    auto failed = [&err] {
        DebugTrace(DIB_LEVEL_OP, u"<DibJPGSave()=%d (error)\r\n", err.pub.msg_code);
        return DWORD(DibErrorUnknown);
    };
    if (!CreateCompressor(&cinfo, &err)) return failed();

    HANDLE const file =
        CreateFileW(filename, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        DebugTrace(DIB_LEVEL_OP, u"<DibJPGSave()=DibErrorFileCreation\r\n");
        return DibErrorFileCreation;
    }
    TovScopeGuard discardFile([file] { PlatDiscardFile(file); });  // the old file stays as it was
    if (!Compress(&cinfo, &err, &dest, file, source, quality)) return failed();
    discardFile.Release();
    if (!CloseHandle(file)) {
        DebugTrace(DIB_LEVEL_OP, u"<DibJPGSave()=DibErrorFileCreation\r\n");
        return DibErrorFileCreation;
    }
    destroyCompressor.Release();
    jpeg_destroy_compress(&cinfo);
    unloadTemp.Release();
    if (temp) DibUnload(temp);
    // "DibOK" (sic): the device writes it so here alone.
    DebugTrace(DIB_LEVEL_OP, u"<DibJPGSave()=DibOK\r\n");
    return DibOk;
}

HDIB DibJPGLoad(const WCHAR* filename) {
    JpegDecoder decoder;
    return DibLoadFile(filename, decoder, kJpegTexts);
}

}  // extern "C"
