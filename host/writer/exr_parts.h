#pragma once

#include "host/writer/exr/part.h"
#include "host/writer/image_writer.h"

#include <array>
#include <string>
#include <vector>

namespace host::writer {

// How a job's images become the parts of an EXR file. The main image's channels are R, G, B and A; those of a
// layer have its name and a dot in front. Names that were chosen are put there in this order, but where one
// is called red, green, blue or alpha it is that; one with a dot in it stands as it is, without a dot at its
// beginning. In a part of its own a layer needs no such names: the part has it.

// A channel of a layer: its name in the file, and which of red, green, blue and alpha it is.
struct NamedChannel {
  std::string name;
  int place = 0;
};

// In the order chosen. `coverage`: of the image; without, alpha says nothing and a layer has none by itself.
std::vector<NamedChannel> channels_of(const OutputFile& file, size_t layer, bool coverage);

// The file's only layer where it names none.
const OutputFile::Layer& layer_at(const OutputFile& file, size_t layer);

// Their channels lie in the job's pixels, or in `storage`, a vector an image, where those do not fill their
// window or are encoded. Layers of one part share a window that holds all of theirs. Throws
// std::runtime_error.
std::vector<exr::Part> exr_parts(const WriteJob& job, std::vector<std::vector<float>>& storage);

// What the file is to say of its picture beside `Software`.
files::Metadata metadata_of(const WriteJob& job);

}  // namespace host::writer
