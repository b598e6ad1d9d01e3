// An extension in this process, loaded as the server loads it.
#pragma once

#include <string>

#include "check/extension.h"

namespace kova::ctl {

// Loads the library at `path`, asks for its versions, gives it `restart`, which
// may be null, and initialises it. Returns what is wrong with it, as the end of
// a sentence; empty if it can answer requests. It is never unloaded.
std::wstring LoadExtension(const std::wstring& path,
                           KOVA_RestartRoutine* restart,
                           check::Extension& extension);

}  // namespace kova::ctl
