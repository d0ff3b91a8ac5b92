/*
 * The control interface of the stand-in scan engine, for tests: make any
 * function fail by ordinal, report other geometry, read the log of calls
 * with their arguments, and count what is open. Functions have their own
 * prefix and are found with GetProcAddressW by name (or dlsym).
 */
#ifndef QDXCONTROL_H
#define QDXCONTROL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One call the engine received. */
typedef struct QdxCall {
    int32_t ordinal;  /* the function's ordinal (1 to 27) */
    uint32_t session; /* the session argument, 0 where there is none */
    int32_t value;    /* the value argument: aimer, illumination, mode, bytes */
    int32_t result;   /* what it returned: 0 false, not 0 true */
} QdxCall;

/* Back to the start: nothing open, no failures armed, an empty log, the
 * geometry of the environment, default settings, frame counter 0. */
void QdxCtlReset(void);
/* The call of that ordinal after `after` more calls of it fails, `times`
 * times in a row (-1: from then on). */
void QdxCtlFail(int32_t ordinal, int32_t after, int32_t times);
/* What QDXE_GetEngineInfo reports from now on (the frame it draws is
 * clipped to what the scan space holds). */
void QdxCtlSetGeometry(uint32_t width, uint32_t height, uint32_t orientation);
/* The class byte GetEngineType reports (1 by default). */
void QdxCtlSetEngineType(uint8_t type);
/* The log: how many calls, and the call at an index (0: first). */
uint32_t QdxCtlLogCount(void);
int32_t QdxCtlLogEntry(uint32_t index, QdxCall* call);
/* Open sessions and reserved scan spaces now; 1 when initialised. */
int32_t QdxCtlOpenSessions(void);
int32_t QdxCtlScanSpaces(void);
int32_t QdxCtlInitialized(void);
/* Settings as the engine holds them. */
int32_t QdxCtlAimer(void);
int32_t QdxCtlIllumination(void);
int32_t QdxCtlScanning(void);
int32_t QdxCtlExposureMode(void);
/* The value last set for an exposure setting, or the engine's default. */
int32_t QdxCtlExposureSetting(uint32_t id);

#ifdef __cplusplus
}
#endif

#endif
