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
 * Does nothing while no server exists. Extension libraries that were loaded
 * stay loaded.
 *
 * When it has returned, nothing listens and no thread of the server reads or
 * writes anything any more, and the host may unload the library at once: a
 * thread that has yet to end keeps the library for itself until then. A thread
 * that had to be killed never gives the library back, which then stays loaded.
 *
 * It returns at once where everything ends by itself (some 100 ms with
 * connections open), and as long as Windows' own calls return:
 *   - within 2 seconds more where the accept thread does not end (1 s, then it
 *     is killed and gets 1 s to be gone);
 *   - within 6 seconds more where connections do not, an extension that does
 *     not return for instance (5 s, then they are killed, 1 s for all);
 *   - where a restart is under way, after that restart: 8 seconds for its own
 *     stop and 31 for a listener that does not come up. */
typedef void KOVA_StopServer(void);
KOVA_StopServer StopKOVAServer;

#ifdef __cplusplus
} /* extern "C" */
#endif
