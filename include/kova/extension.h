/* What a printer driver's network-extension library exports, and what the
 * server promises to it. For C and C++.
 *
 * The library is called "Corvane_V3_NetMon.dll" and lies in the driver's
 * package directory, which the printer names in its printer data
 * "DriverPackage" (REG_SZ). It exports the seven functions below by name,
 * undecorated, with the standard 64-bit Windows calling convention. The server
 * loads it on the first request for one of its printers and keeps it loaded
 * until the host process ends; printers that share a package directory share
 * one library and one context.
 *
 * Order of calls, once per load:
 *   WSIE_GetInterfaceVersionsSupported, WSIE_SetKOVAServerRestartRoutine,
 *   WSIE_WebServerInitialize.
 * Order of calls, once per request:
 *   WSIE_HandleServerRequest, WSIE_GetResponseLength, WSIE_GetResponse,
 *   WSIE_ReleaseResponse.
 *
 * Threads: the three calls of a load come one at a time. The calls of a request
 * come on that connection's thread, without any lock, so calls for different
 * requests arrive on several threads at once, all with the one context.
 *
 * Failures: a function that the library does not export counts as failed, and
 * so does a null or a 0 where noted. The server then answers the client with a
 * response of its own, of status 400.
 *
 * No C++ exception may leave any of these functions: the server does not catch
 * it, and the host process ends.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The only version of this interface there is. */
#define KOVA_INTERFACE_VERSION 1u

/* The file name under which the server looks for an extension. */
#define KOVA_EXTENSION_FILE_NAME L"Corvane_V3_NetMon.dll"

/* The extension's own state, whatever it points to. Made by
 * WSIE_WebServerInitialize and owned by the extension for the life of the
 * process: there is no call that gives it back. */
typedef void* KOVA_Context;

/* One answer being handed over, whatever it points to. Belongs to the extension
 * from WSIE_HandleServerRequest to WSIE_ReleaseResponse; the server never looks
 * inside. */
typedef void* KOVA_Response;

/* Asks the server to stop listening and to start again with freshly read
 * settings. Returns at once; may be called on any thread at any time while the
 * server's library is loaded, also while a request is being handled. The
 * restart ends the connections that are open. Several calls in quick succession
 * may lead to one restart. Does nothing while no server runs. */
typedef void KOVA_RestartRoutine(void);

/* WSIE_GetInterfaceVersionsSupported: first call after loading. Writes the
 * interface versions that the extension speaks.
 *   versions  array owned by the server, all zero on entry, valid during the
 *             call; entries may be written in any order and left unwritten.
 *   capacity  entries in that array (the server offers 10); never write more.
 * An array without KOVA_INTERFACE_VERSION makes the server unload the library.
 */
typedef void KOVA_GetInterfaceVersionsSupported(uint32_t* versions,
                                                uint32_t capacity);

/* WSIE_SetKOVAServerRestartRoutine: second call, left out if not exported.
 *   routine   the server's restart routine, never null; may be kept. */
typedef void KOVA_SetKOVAServerRestartRoutine(KOVA_RestartRoutine* routine);

/* WSIE_WebServerInitialize: third call, once per load. Runs while requests for
 * every extension wait, so it should be quick.
 * Returns the context that every later call receives; null means failure, and
 * the server unloads the library for good. */
typedef KOVA_Context KOVA_WebServerInitialize(void);

/* WSIE_HandleServerRequest: handles one request. Everything pointed to belongs
 * to the server and is valid only during the call.
 *   context              what WSIE_WebServerInitialize returned; null if the
 *                        library does not export that function.
 *   request              the request's bytes as received, headers and body,
 *                        not zero-terminated.
 *   requestLengthBytes   their number, at least 1.
 *   clientAddress        the client's address as text, UTF-16.
 *   clientAddressLength  its length in UTF-16 units, without a terminator.
 *   keepOpen             a flag of the connection, 0 on its first request and
 *                        left alone by the server after that: write non-zero
 *                        to keep the connection open after the answer, 0 to
 *                        have it closed.
 * A request may arrive without its body: it counts as complete when its headers
 * are complete and none of its body has arrived yet, whatever its
 * Content-Length says. A client that sends headers and body in separate
 * segments may thus be answered before the body came.
 * Returns the response; null means failure. */
typedef KOVA_Response KOVA_HandleServerRequest(KOVA_Context context,
                                               const void* request,
                                               uint32_t requestLengthBytes,
                                               const wchar_t* clientAddress,
                                               uint32_t clientAddressLength,
                                               uint32_t* keepOpen);

/* WSIE_GetResponseLength: the number of bytes of the complete HTTP response,
 * status line and headers included; 0 means failure. */
typedef uint32_t KOVA_GetResponseLength(KOVA_Context context,
                                        KOVA_Response response);

/* WSIE_GetResponse: copies the complete HTTP response. The server sends it as
 * it is.
 *   buffer             owned by the server, valid during the call.
 *   bufferLengthBytes  its size, always what WSIE_GetResponseLength returned.
 * Returns non-zero on success, 0 on failure. */
typedef int32_t KOVA_GetResponse(KOVA_Context context, KOVA_Response response,
                                 void* buffer, uint32_t bufferLengthBytes);

/* WSIE_ReleaseResponse: called exactly once for every non-null response, after
 * the copy or after a failed length or copy; the server does not use the
 * response afterwards. */
typedef void KOVA_ReleaseResponse(KOVA_Context context, KOVA_Response response);

/* An extension defines KOVA_BUILDING_EXTENSION before it includes this header:
 * the compiler then checks its seven functions against the types above, and
 * exports them. */
#ifdef KOVA_BUILDING_EXTENSION
#ifdef _WIN32
#define KOVA_EXTENSION_EXPORT __declspec(dllexport)
#else /* only to be tried: with sanitizers, by a fuzzer */
#define KOVA_EXTENSION_EXPORT __attribute__((visibility("default")))
#endif
KOVA_EXTENSION_EXPORT KOVA_GetInterfaceVersionsSupported
    WSIE_GetInterfaceVersionsSupported;
KOVA_EXTENSION_EXPORT KOVA_SetKOVAServerRestartRoutine
    WSIE_SetKOVAServerRestartRoutine;
KOVA_EXTENSION_EXPORT KOVA_WebServerInitialize WSIE_WebServerInitialize;
KOVA_EXTENSION_EXPORT KOVA_HandleServerRequest WSIE_HandleServerRequest;
KOVA_EXTENSION_EXPORT KOVA_GetResponseLength WSIE_GetResponseLength;
KOVA_EXTENSION_EXPORT KOVA_GetResponse WSIE_GetResponse;
KOVA_EXTENSION_EXPORT KOVA_ReleaseResponse WSIE_ReleaseResponse;
#endif

#ifdef __cplusplus
} /* extern "C" */
#endif
