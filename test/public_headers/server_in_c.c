/* Whole: the server header serves a host written in C. */
#include "kova/server.h"

KOVA_StartServer* const g_start = StartKOVAServer;
KOVA_StopServer* const g_stop = StopKOVAServer;
