// Makes a folder for an extension of one's own.
#pragma once

#include <optional>
#include <string>

#include "common/exit_code.h"

namespace kova::ctl {

enum class Language { kC, kCpp };

// Makes the folder `path`, which must not exist, and writes a CMake project
// into it that builds a sound extension in that language. It is called what the
// last part of `path` is: a letter, then letters, digits, '_' and '-'.
std::optional<Failure> MakeExtension(const std::wstring& path,
                                     Language language);

}  // namespace kova::ctl
