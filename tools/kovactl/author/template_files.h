// The files of a new extension's folder, as template/ has them.
#pragma once

#include <cstddef>
#include <iterator>

namespace kova::ctl {

// `text` holds places like @NAME@.
struct TemplateFile {
  const char* name;
  const char* text;
};

extern const TemplateFile kTemplateFiles[];
extern const size_t kTemplateFileCount;

}  // namespace kova::ctl
