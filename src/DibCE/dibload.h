/*
 * The one way a picture file is read into a bitmap, whatever its format:
 *
 *   open -> the file's length -> the format reads its header and declares
 *   the picture -> the length against the bytes that picture needs ->
 *   the bitmap -> the format reads the pixels into it -> close
 *
 * A format supplies a DibFileDecoder (its header and pixel steps, with its
 * own state) and its trace texts; DibLoadFile owns the file and the bitmap,
 * so that every refusal and failure closes the one and unloads the other,
 * and no format checks the length of its file in a way of its own.
 */
#ifndef TOVREL_DIBLOAD_H
#define TOVREL_DIBLOAD_H

#include "dibce.h"

#ifdef __cplusplus

/* What a file's header says about its picture. */
struct DibDeclaredPicture {
    LONG width = 0, height = 0;
    DWORD bitcount = 0;
    /* The file's own header and colours to make the bitmap from; nullptr for
     * a grey bitmap of width x height x bitcount. */
    const BITMAPINFO* info = nullptr;
    /* The fewest bytes a file that declares this picture can have. */
    int64_t leastFileBytes = 0;
};

/* The trace lines of one format's load; each names the load that writes it. */
struct DibLoadTexts {
    const WCHAR* entry;      /* %s: the file name */
    const WCHAR* notOpened;  /* the file cannot be opened */
    const WCHAR* noInfo;     /* a grey bitmap's info block cannot be made */
    const WCHAR* noBitmap;   /* the bitmap cannot be made */
    const WCHAR* loaded;     /* %lld: the new handle */
};

class DibFileDecoder {
public:
    virtual ~DibFileDecoder() = default;
    /* Reads the file up to its picture's declaration (fileLength is known);
     * false when the file is refused, after its trace. */
    virtual bool ReadHeader(HANDLE file, int64_t fileLength, DibDeclaredPicture* picture) = 0;
    /* The trace of a file shorter than its picture needs (picture is empty
     * when the length cannot be told). */
    virtual void TraceTooShort(const DibDeclaredPicture& picture) = 0;
    /* Fills the new bitmap; false after its trace when the pixels cannot be
     * read. */
    virtual bool ReadPixels(HDIB hdib) = 0;
};

/* Loads filename through decoder; NULL when any step refuses or fails. */
HDIB DibLoadFile(const WCHAR* filename, DibFileDecoder& decoder, const DibLoadTexts& texts);

#endif

#endif
