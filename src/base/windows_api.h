// The one place that includes Windows headers, in the one order that works
// (Winsock 2 before windows.h) and without the macros that collide with C++.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <winspool.h>
#include <process.h>
// clang-format on
