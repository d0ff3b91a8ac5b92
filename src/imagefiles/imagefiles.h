/*
 * JPEG, PNG and printer raster files of the bitmap layer.
 *
 * JPEG: baseline grey files out, any 8-bit JPEG that libjpeg can turn into
 * grey in (colour files are read as their luminance). PNG: grey files of the
 * bitmap's own depth (1, 4 or 8 bits) out, grey and palette files of 1, 4
 * and 8 bits in (palette indices become grey levels). Printer raster: the
 * Oneil line format, 1 bit a dot.
 *
 * All file access goes through the platform's file calls; libjpeg and libpng
 * get source, destination and I/O callbacks over those handles. Every call
 * keeps its own library state on its stack: loads and saves on different
 * threads do not share anything.
 */
#ifndef TOVREL_IMAGEFILES_H
#define TOVREL_IMAGEFILES_H

#include "dibce.h"

#ifdef __cplusplus
extern "C" {
#endif

#include <tovrel/tovranges.h>

#define DIB_JPG_MAX_QUALITY TOV_JPG_QUALITY_MAX

/* The picture libjpeg and libpng may describe before we allocate for it:
 * the bitmap core's own limits. */
#define DIB_FILE_MAX_DIMENSION DIB_MAX_DIMENSION

/* Printer formats */
#define DIB_PRN_ONEIL 0
/* The row count of the Oneil header is 16 bits wide. */
#define DIB_PRN_MAX_ROWS 65535
/* Widest printer line accepted, in dots: far beyond any label or receipt
 * printer, and it bounds the bytes a row record takes. */
#define DIB_PRN_MAX_DOTS 65536

DWORD DibJPGSave(const WCHAR* filename, DWORD quality, HDIB hdib);
HDIB DibJPGLoad(const WCHAR* filename);

DWORD DibPNGSave(const WCHAR* filename, HDIB hdib);
HDIB DibPNGLoad(const WCHAR* filename);

/* The loads go through the one load skeleton of dibload.h. */

DWORD DibPRNSave(const WCHAR* filename, HDIB hdib, DWORD format, LONG printerwidth, LONG leftmargin);
DWORD DibPRNSaveOneil(const WCHAR* filename, HDIB hdib, LONG leftmargin, LONG printerwidth);

#ifdef __cplusplus
}
#endif

#endif
