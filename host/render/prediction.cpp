#include "host/render/prediction.h"

#include <qv/nodes/filter/scratch.h>

#include "host/draw/evaluator.h"
#include "host/draw/limits.h"
#include "host/draw/read_back.h"
#include "host/draw/result_store.h"
#include "host/draw/upcoming.h"
#include "host/frame/project.h"
#include "host/plan/targets.h"
#include "host/programs/program_binaries.h"
#include "host/programs/shader_library.h"
#include "host/render/delivery.h"
#include "host/writer/container.h"
#include "host/writer/encode.h"

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace host::render {
namespace {

namespace filter = qv::nodes::filter;

// The decoder's queue, of which everything is decoded at once: what it admits and until when it holds it.
class RehearsedDecoder {
 public:
  RehearsedDecoder(plates::Headers& headers, const draw::Limits& limits, MemoryUse use)
      : headers_(headers),
        threads_(static_cast<size_t>(limits.threads)),
        most_bytes_(limits.decoded_bytes),
        account_(std::make_shared<Account>(std::move(use), Owner::decoded)) {}

  void want(const std::vector<decode::Wanted>& list) {
    // Of the nearest frame that wants it; the list has nearer ones first.
    std::map<plates::Source, int> takes;
    std::map<plates::Source, int> distances;
    std::vector<plates::Source> order;
    for (const decode::Wanted& each : list) {
      const auto [known, fresh] = distances.try_emplace(each.source, each.distance);
      if (fresh) order.push_back(each.source);
      if (known->second == each.distance) ++takes[each.source];
    }
    std::erase_if(under_way_, [&](const auto& entry) { return distances.count(entry.first) == 0; });
    waiting_.clear();
    for (const plates::Source& source : order) {
      const auto entry = under_way_.find(source);
      if (entry != under_way_.end()) {
        entry->second.takes = takes[source];
      } else {
        waiting_.emplace_back(source, takes[source]);
      }
    }
    pump();
  }

  decode::Pixels take(const plates::Source& source) {
    const auto place = under_way_.find(source);
    const Entry entry = place != under_way_.end() ? place->second : hold(source, 1);
    if (place == under_way_.end()) return entry.pixels;
    if (--place->second.takes <= 0) under_way_.erase(place);
    pump();
    return entry.pixels;
  }

 private:
  struct Entry {
    decode::Pixels pixels;  // without values, counted as long as somebody has them
    int takes = 1;
  };

  Entry hold(const plates::Source& source, int takes) const {
    const plates::Layer layer = headers_.layer(source);
    const uint64_t bytes = pixel_bytes(layer.extent.window, layer.half);
    account_->set(account_->bytes() + bytes);
    const auto forget = [account = account_, bytes](const float*) { account->set(account->bytes() - bytes); };
    return {{layer.extent, {nullptr, forget}, {}, layer.half}, takes};
  }

  void pump() {
    uint64_t bytes = 0;
    for (const auto& [source, entry] : under_way_) bytes += entry.pixels.bytes();
    while (!waiting_.empty()) {
      const auto [source, takes] = waiting_.front();
      const plates::Layer layer = headers_.layer(source);
      bytes += pixel_bytes(layer.extent.window, layer.half);
      if (under_way_.size() >= threads_ && bytes > most_bytes_) return;
      under_way_.emplace(source, hold(source, takes));
      waiting_.pop_front();
    }
  }

  plates::Headers& headers_;
  size_t threads_;
  uint64_t most_bytes_;
  std::shared_ptr<Account> account_;
  std::map<plates::Source, Entry> under_way_;
  std::deque<std::pair<plates::Source, int>> waiting_;
};

// Images on their way to files, as many as there may be.
class RehearsedDelivery {
 public:
  RehearsedDelivery(const draw::Limits& limits, const MemoryUse& use)
      : limits_(limits),
        buffers_(static_cast<size_t>(limits.threads), limits.strip_bytes, use),
        ring_(use, Owner::ring),
        encoders_(use, Owner::encoders) {}

  void send(const std::vector<node::Image>& images, const writer::OutputFile& file) {
    writer::load_encoder(file);
    uint64_t encoding = 0;
    for (const node::Image& image : images) encoding += send(image, file, &image != &images[0]);
    encoding_ = std::max(encoding_, encoding);
    at_work_ = std::max(at_work_, std::min(sent_.size(), static_cast<size_t>(limits_.threads)));
    encoders_.set(at_work_ * encoding_);
  }

 private:
  // Returns what an encoder fills for it.
  uint64_t send(const node::Image& image, const writer::OutputFile& file, bool joins) {
    const Box window = draw::read_window(image, sent_area(image, file));
    const uint64_t bytes = pixel_bytes(window);
    const draw::SentLimit limit = joins ? draw::unlimited : limits_.sent(writer::packed_by_all(file.path));
    uint64_t held = 0;
    for (const auto& sent : sent_) held += sent.second;
    for (; !sent_.empty() && !limit.room(sent_.size(), held, bytes); sent_.pop_front())
      held -= sent_.front().second;
    if (image.decoded && !image.decoded->pixels.half && window == image.extent.window) {
      sent_.emplace_back(image.decoded, bytes);
    } else if (bytes > 0) {
      sent_.emplace_back(buffers_.acquire(bytes / sizeof(float), limit), bytes);
    }
    if (!image.decoded) pass_ring(bytes);
    return writer::encoding_bytes(file, {image.extent.format, window});
  }

  void pass_ring(uint64_t bytes) {
    if (bytes == 0) return;
    const uint64_t strip = std::min(bytes, limits_.strip_bytes);
    largest_ = std::max(largest_, strip);
    used_ = std::min(used_ + (bytes + strip - 1) / strip, static_cast<uint64_t>(limits_.ring));
    constexpr uint64_t step = uint64_t{1} << 20;
    ring_.set(used_ * ((largest_ + step - 1) / step * step));
  }

  const draw::Limits& limits_;
  draw::BufferPool buffers_;
  std::deque<std::pair<std::shared_ptr<const void>, uint64_t>> sent_;
  Account ring_;
  Account encoders_;
  uint64_t largest_ = 0;   // strip that came through the ring
  uint64_t used_ = 0;      // buffers of the ring
  uint64_t encoding_ = 0;  // the most that one encoder fills
  size_t at_work_ = 0;     // encoders
};

// The filter layer's textures are of one texel meanwhile.
struct RehearsedFilters {
  RehearsedFilters() {
    filter::scratch_rehearse(true);
  }
  ~RehearsedFilters() {
    filter::scratch_rehearse(false);
  }
  RehearsedFilters(const RehearsedFilters&) = delete;
  RehearsedFilters& operator=(const RehearsedFilters&) = delete;
};

class Rehearsal {
 public:
  Rehearsal(const shot::Composition& composition, const RenderOptions& options, gpu::GpuContext& context)
      : outputs_(composition.outputs.size()),
        limits_(options.threads, options.memory, context.software()),
        use_(!context.software()),
        headers_(options.headers ? options.headers : std::make_shared<plates::Headers>()),
        project_(frame::make_project(composition, options.scale, *headers_, options.by_content)),
        targets_(composition, project_, options.outputs),
        shaders_(programs::ShaderLibrary::default_root(), programs::ProgramBinaries::default_folder()),
        pool_(options.memory, context.max_texture_size(), use_, gpu::TexturePool::Purpose::rehearsal),
        decoder_(*headers_, limits_, use_),
        context_(
            shaders_, pool_, [this](const plates::Source& source) { return decoder_.take(source); }, use_),
        evaluator_(composition, project_, pool_, context_, store_, stats_, use_, options.memory, nullptr),
        keys_(composition, project_),
        upcoming_(composition, project_, keys_, plan::images_of(composition),
                  options.frames.empty() ? composition.frames : options.frames, limits_.frames_ahead),
        delivery_(limits_, use_) {
    headers_->hold_to(context.max_texture_size());
    if (context.software()) shaders_.widen_blurs();
    filter::scratch_sampler(pool_.sampler());
    filter::scratch_cap(options.memory / 4);
  }

  Holdings run() {
    draw::Upcoming frame;
    while (upcoming_.next(frame)) {
      if (frame.error) continue;
      try {
        rehearse(frame);
      } catch (const frame::FrameError&) {
        continue;  // who renders it is told
      }
    }
    return use_.at_most();
  }

 private:
  void rehearse(const draw::Upcoming& frame) {
    const std::vector<plan::Target> targets = targets_.at(frame.frame);
    decoder_.want(upcoming_.wanted(frame, store_));
    const auto places = draw::places_of(targets, outputs_);
    const auto images = evaluator_.evaluate(
        frame.keyed, [this](int64_t key) { return upcoming_.asks_for(key); },
        draw::parts_of(targets, places));
    for (size_t i = 0; i < targets.size(); ++i) {
      std::vector<node::Image> layers;
      for (const size_t at : places[i]) layers.push_back(images[at]);
      delivery_.send(layers, targets[i].file);
    }
  }

  const size_t outputs_;
  const draw::Limits limits_;
  const MemoryUse use_;
  draw::Stats stats_;
  std::shared_ptr<plates::Headers> headers_;
  node::Project project_;
  plan::Targets targets_;
  programs::ShaderLibrary shaders_;
  gpu::TexturePool pool_;
  RehearsedFilters filters_;
  RehearsedDecoder decoder_;
  node::RenderContext context_;
  draw::ResultStore store_;
  draw::Evaluator evaluator_;
  frame::FrameKeys keys_;
  draw::UpcomingFrames upcoming_;
  RehearsedDelivery delivery_;
};

}  // namespace

Prediction predict(const shot::Composition& composition, const RenderOptions& options,
                   gpu::GpuContext& context) {
  Rehearsal rehearsal(composition, options, context);
  Prediction prediction;
  prediction.device_apart = !context.software();
  prediction.images = rehearsal.run();
  prediction.base = resident_bytes();
  return prediction;
}

}  // namespace host::render
