// What a library's file says about itself. The library is not loaded: nothing
// of it runs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/random_access_file.h"

namespace kova::ctl {

enum class ImageForm {
  kSound,     // a 64-bit image for this kind of machine
  kNoImage,   // neither a library nor a program
  kForeign,   // for another kind of machine
  kCutShort,  // an image whose sections or tables the file does not hold
};

struct ImageFacts {
  ImageForm form = ImageForm::kNoImage;
  uint16_t machine = 0;  // IMAGE_FILE_MACHINE_..., unless kNoImage
  // Only of a sound image:
  std::vector<std::string> exports;  // by name
  std::vector<std::string> imports;  // the libraries it needs

  [[nodiscard]] bool Exports(const char* name) const;
};

// Reads an image as the documentation of the PE format lays it out; believes
// nothing that the file says of itself.
ImageFacts ReadImage(const RandomAccessFile& file);

// Which of the libraries that an image needs are found neither in the system's
// folders nor on the path. The host's own folder is not known here.
std::vector<std::string> MissingImports(const ImageFacts& image);

// "32-bit (x86)", "64-bit (ARM64)", "machine type 0x1234".
std::wstring MachineText(uint16_t machine);

}  // namespace kova::ctl
