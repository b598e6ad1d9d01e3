// Whole: the server header serves a host written in C++.
#include "kova/server.h"

#include <type_traits>

static_assert(std::is_same_v<KOVA_StartServer, void()>);
static_assert(std::is_same_v<KOVA_StopServer, void()>);
static_assert(std::is_same_v<decltype(&StartKOVAServer), KOVA_StartServer*>);
static_assert(std::is_same_v<decltype(&StopKOVAServer), KOVA_StopServer*>);
