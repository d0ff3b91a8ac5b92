/*
 * The processing catalogue: the one table of the 14 filters a chain can
 * name, with each parameter's name, kind, range and default, and the chain
 * of the open profile ready to run.
 *
 * Ranges and defaults are texts, as the lookup exports hand them out; they
 * are converted at each use. Parameter 1 of every filter is "Flags" and
 * never reaches the filter. A filter is called with typed arguments through
 * the call of its shape, never with a raw block.
 */
#ifndef TOVREL_PFCATALOG_H
#define TOVREL_PFCATALOG_H

#include "profiledoc.h"
#include "tovce.h"

#define PF_FILTERS 14
#define PF_PARMS 8          /* rows of a filter, "Flags" included */
#define PF_ARGS_BYTES 64
#define CHAIN_SLOTS 64

enum PfParmKind : DWORD { PfParmInteger = 1, PfParmReal = 2 };

struct PfParm {
    const WCHAR* pszName; /* NULL: an empty row, which ends the list */
    DWORD dwKind;
    const WCHAR* pszMin;
    const WCHAR* pszMax;
    const WCHAR* pszDefault;
};

struct PfArgs {
    BYTE bytes[PF_ARGS_BYTES];
};

/* The typed call of one filter: its export with the values of its rows
 * read from the block in order, each with the export's own type. */
typedef DWORD (*PfFilter)(HDIB hdib, const PfArgs* args);

struct PfEntry {
    const WCHAR* pszName;
    DWORD dwID;
    PfFilter pfnFilter;
    PfParm Parms[PF_PARMS];
};

/* The row of a filter identifier, NULL outside 1 to 14. */
const PfEntry* PfCatalogEntry(DWORD id);

struct ChainSlot {
    DWORD dwID;       /* 0: empty */
    DWORD dwFlags;    /* bit 1 clear: passed over for a picture of the preview size */
    PfFilter pfnFilter;
    PfArgs Args;
};

/* The chain of the open profile; filled slots run from slot 1 without a
 * gap. Guarded by the global lock. */
extern ChainSlot ChainTable[CHAIN_SLOTS];

/* Clamps the text in value into the row's range, rewrites it in canonical
 * form ("%d", "%.2f") and stores the number in the slot (1 to 64, filled).
 * False for a null or unknown parameter name. */
bool ApplyPfParm(DWORD slot, const WCHAR* parmName, ProfileValue* value);

#endif
