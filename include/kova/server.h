/* The two functions that KOVAServer.dll exports to its host. For C and C++.
 *
 * Threads: any thread, but the host calls neither while one of them runs.
 * Neither may be called from DllMain.
 *
 * Failures: neither function reports any. What went wrong is in the server's
 * log (the Windows event log, the debugger output, a text file). An exception
 * inside them is not caught: it goes on to the host after a crash dump was
 * written.
 *
 * A host that links to the library calls the functions by name; one that loads
 * it at run time looks them up by these names and casts to the types below.
 */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Reads the server's settings from the registry and, unless they switch TCP
 * off, listens for HTTP requests on IPv4. Returns when the listener runs or has
 * failed to, at the latest after 30 seconds. While a server runs, a further
 * call changes nothing. */
typedef void KOVA_StartServer(void);
KOVA_StartServer StartKOVAServer;

/* Stops listening, ends the connections that are open and frees the server.
 * Returns when no thread of the server is left, which takes some seconds at
 * worst; the host may then unload the library. Does nothing while no server
 * exists. Extension libraries that were loaded stay loaded. */
typedef void KOVA_StopServer(void);
KOVA_StopServer StopKOVAServer;

#ifdef __cplusplus
} /* extern "C" */
#endif
