#pragma once

#include "host/files/metadata.h"
#include "host/plates/layers.h"
#include "host/plates/part_info.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace host::plates {

struct OpenFile;

// What the system says of a path without opening it.
struct Attributes {
  bool exists = false;
  bool regular = false;  // a file, no folder or device
  int64_t size = 0;      // bytes; 0 of what is no file, as is the date
  int64_t mtime_ns = 0;  // last written, nanoseconds since 1970 UTC
  bool operator==(const Attributes&) const = default;
};

// What a file says of itself before its pixels are read. A file that cannot be opened has `error`
// set and nothing else.
struct Header {
  std::string error;  // names the path
  Contents contents;
  std::string format;  // "openexr", "tiff", ...
  bool plain = false;  // one part of R, G, B, A that fills its display window
  ColorSpace color;
  std::vector<PartInfo> parts;
};
using HeaderPtr = std::shared_ptr<const Header>;

using FramesPtr = std::shared_ptr<const std::vector<int64_t>>;  // in order

// One image wanted of one file: the path, and the layer or channels that become RGBA (none of either:
// the file's main image). The same for every node that reads the same thing.
struct Source {
  std::string path;
  std::string layer;
  std::vector<std::string> channels;
  bool pixels = true;  // false: its header alone
  bool operator==(const Source&) const = default;
  bool operator<(const Source& other) const {
    return std::tie(path, layer, channels, pixels) <
           std::tie(other.path, other.layer, other.channels, other.pixels);
  }
};

// How the colour of a file is taken: what it is encoded as, and whether that is undone.
struct ReadColor {
  std::string space;  // as ColorSpace::name
  bool decoded = false;
};

// Attributes and headers by path. A header stays known until the file's attributes are seen to be
// others; a lookup then costs a map search. Whoever draws asks for attributes, and has a decoder open the
// files: it promises their headers when it queues them. Bounded: the oldest half goes when there are 4,096,
// or their metadata takes more than 64 MiB. Thread-safe.
class Headers {
 public:
  // Images with a side longer than `most_side` are refused from now on: no texture of the device holds
  // them. At first there is no limit.
  void hold_to(int64_t most_side) {
    most_side_ = most_side;
  }

  // Asks the system now, and forgets a header that was read under other attributes.
  Attributes attributes(const std::string& path);

  // A number that stands for the bytes of a file, read now unless it was already under these attributes; 0
  // of what cannot be read.
  int64_t content(const std::string& path);

  // As they were last asked for; asked now where they never were.
  Attributes last_attributes(const std::string& path);

  // Waits for a header that is promised; one that nobody promised is read on the calling thread.
  HeaderPtr get(const std::string& path);

  // Null where it would have to be waited for or read.
  HeaderPtr known(const std::string& path) const;

  // For who promised it: reads the header unless it is known, and hands on the file that it then has open.
  HeaderPtr read(const std::string& path, std::shared_ptr<OpenFile>* file = nullptr);

  // While the result lives, get() on other threads waits for read(). It does not outlive the headers.
  std::shared_ptr<void> promise(const std::string& path);

  // Where a source's pixels lie in its file. Throws std::runtime_error that names the path when it
  // cannot be read: no file, no such layer, a deep or an oversize image.
  Layer layer(const Source& source) {
    return layer(source, *get(source.path));
  }
  Layer layer(const Source& source, const Header& header) const;

  // What the part that a source lies in says beside its pixels; may be null. Throws as layer() does.
  files::MetadataPtr metadata(const Source& source);

  // First and last frame for which a file of this pattern stands; nothing when there is none. As the folder
  // was when it was last looked at, for whatever frame.
  using Range = std::optional<std::pair<int64_t, int64_t>>;
  Range frames_on_disk(const std::string& pattern);

  // The same as it is to be for one frame: `look_at_range` asks the system now, and reads the folder if it
  // has changed; `range_at` gives what that came to last.
  Range look_at_range(const std::string& pattern, int64_t frame);
  Range range_at(const std::string& pattern, int64_t frame);

  // Null where this file of the pattern stands, else the frames that stand. `look_beside` asks the system
  // now, and reads the folder if it has changed; `frames_beside` gives what that came to last.
  FramesPtr look_beside(const std::string& path, const std::string& pattern);
  FramesPtr frames_beside(const std::string& path, const std::string& pattern);

 private:
  struct Entry {
    Attributes attributes;
    HeaderPtr header;  // null until it has been read
    std::optional<int64_t> content;
    FramesPtr beside;  // null until it was looked for
  };

  // What was read of a pattern's folder.
  struct Listing {
    int64_t changed = 0;   // the folder, nanoseconds since 1970 UTC
    bool settled = false;  // whatever came later has changed the folder's time
    FramesPtr frames;
    std::map<int64_t, Range> ranges;  // by the frame that they were asked for

    Range range() const {
      return frames->empty() ? Range() : Range(std::in_place, frames->front(), frames->back());
    }
  };

  Entry& entry(const std::string& path, const Attributes& attributes);
  Listing& listing(const std::string& pattern, bool anew);

  std::atomic<int64_t> most_side_ = std::numeric_limits<int64_t>::max();
  mutable std::mutex mutex_;         // guards what follows, up to the listings
  std::condition_variable learned_;  // a header, or that a promise ended
  std::map<std::string, Entry> known_;
  std::vector<std::string> order_;  // paths, the oldest first
  uint64_t metadata_bytes_ = 0;     // of what is known
  std::map<std::string, int> promised_;
  std::mutex listings_mutex_;
  std::map<std::string, Listing> listings_;
};

}  // namespace host::plates
