#pragma once

#include <qv/io/file_attributes.h>

#include <memory>
#include <string>

#include <OpenImageIO/imageio.h>

namespace qv::io::general {

// Opens `path` for reading with `threads` as the file's own thread count (0: OpenImageIO's
// default). Null, with a text that is never empty in `error`, when that fails. Pipes, sockets and
// devices are refused, because opening one can wait for ever. `attributes` are those of the file, for who
// has asked for them already. Thread-safe.
std::unique_ptr<OIIO::ImageInput> open_reader(const std::string& path, int threads, std::string& error);
std::unique_ptr<OIIO::ImageInput> open_reader(const std::string& path, const FileAttributes& attributes,
                                              int threads, std::string& error);

// The reader's pending error text, cleared as it is taken; "read failed" when it left none.
std::string take_error(OIIO::ImageInput& input);

// The format that channels [chbegin, chend) share, unknown when they do not. What is stored as wanted
// is best asked for as TypeUnknown: OpenImageIO 2.4 then delivers it in place, while any format that is
// named, even the stored one, passes through up to 64 MiB of scratch memory a call.
OIIO::TypeDesc common_format(const OIIO::ImageSpec& spec, int chbegin, int chend);

}  // namespace qv::io::general
