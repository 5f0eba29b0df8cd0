/*
 * guarded_calls.h - the two driver calls that can raise a C++ exception, made safe for a
 * host written in C. An exception cannot cross a C frame: uncaught, it ends the process
 * (std::terminate). guarded_calls.cpp, compiled as C++ and linked into the host, calls
 * the entry point inside try/catch and turns an exception into a result.
 *
 * On an exception the guard calls Timeout(0, handle), which closes the device's
 * connection, writes the exception's text into what, and returns -1. The values of that
 * round are not valid (InputFilterEx would hand back whatever the result slots held):
 * treat the round as failed and reconnect with unitydrv_guarded_init (GetInitCmdEx2) and
 * CheckInitCmdResponseEx2 before the next one.
 */
#ifndef UNITYDRV_GUARDED_CALLS_H
#define UNITYDRV_GUARDED_CALLS_H

#include <stddef.h>

#include "unitydrv/unitydrv.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef unitydrv_result (*unitydrv_output_filter_fn)(_gui_request_*, int);
typedef unitydrv_result (*unitydrv_init_cmd_fn)(uint32_t*, uint32_t, uint32_t, uint32_t, void**);
typedef void (*unitydrv_timeout_fn)(uint32_t, void*);

/* OutputFilterEx(requests, count) through output_filter: 0, or -1 after an exception. */
int unitydrv_guarded_output(unitydrv_output_filter_fn output_filter, unitydrv_timeout_fn timeout,
                            _gui_request_* requests, int count, char* what, size_t what_size);
/* GetInitCmdEx2(code, 0, 0, 0, handle) through init_cmd: 0, or -1 after an exception. */
int unitydrv_guarded_init(unitydrv_init_cmd_fn init_cmd, unitydrv_timeout_fn timeout,
                          uint32_t* code, void** handle, char* what, size_t what_size);

#ifdef __cplusplus
}
#endif

#endif /* UNITYDRV_GUARDED_CALLS_H */
