#include "host/cli/commands/farm_actions.h"

#include "host/cli/cli.h"
#include "host/cli/device.h"
#include "host/files/atomic_file.h"
#include "host/files/path.h"
#include "host/plan/plan.h"
#include "host/render_farm/job.h"
#include "host/render_farm/openjd.h"
#include "host/render_farm/sbatch.h"
#include "host/render_farm/slurm.h"
#include "host/render_farm/status.h"
#include "host/render_farm/verify.h"
#include "host/report/info.h"
#include "host/report/printable.h"
#include "host/shot/composition.h"
#include "host/shot/frames.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include <unistd.h>

// Frames on many machines: what is submitted to a scheduler, and what became of it.

namespace host::cli {
namespace {

namespace fs = std::filesystem;

constexpr auto pause = std::chrono::seconds(2);

fs::path own_program() {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  return error ? fs::path("quorvel") : program;
}

void write_text(const fs::path& file, const std::string& text) {
  files::write_whole(file, {reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

// The job that was submitted last, and its composition as it was asked for then.
struct Known {
  shot::Composition composition;
  render_farm::Job job;
};

Known known_job(const FarmCommand& given) {
  const shot::Composition composition = given.render.shot.read();
  const fs::path folder = render_farm::job_folder(composition, given.render.options.outputs);
  const auto job = render_farm::load(folder);
  if (!job || job->array_id.empty())
    throw UsageError(composition.file + ": nothing has been submitted; quorvel farm submit does so");
  if (job->composition != fs::absolute(composition.file).lexically_normal())
    throw UsageError(folder.string() + " is kept for another composition, " + job->composition.string());
  return {shot::read_composition(job->composition, job->asked), *job};
}

// A path after -o is relative to where the command is typed; NODE= may stand in front.
std::string absolute_output(const shot::Composition& composition, const std::string& output) {
  const size_t equals = output.find('=');
  const auto named = [&](const node::Node& node) { return node.given_name() == output.substr(0, equals); };
  const bool has_name =
      equals != std::string::npos && std::any_of(composition.nodes.begin(), composition.nodes.end(), named);
  const size_t path = has_name ? equals + 1 : 0;
  return output.substr(0, path) +
         fs::absolute(files::expanded(output.substr(path))).lexically_normal().string();
}

render_farm::Job new_job(const shot::Composition& composition, const FarmCommand& given) {
  if (given.render.shot.file == "-")
    throw UsageError("a composition from standard input cannot be handed on");
  device_choice(given.render.gpu);  // wrong ones are told of before anything is rendered
  const render::RenderOptions& options = given.render.options;
  render_farm::Job job;
  job.composition = fs::absolute(composition.file).lexically_normal();
  job.program = own_program();
  job.folder = render_farm::job_folder(composition, options.outputs);
  job.name = job.folder.filename().string();
  job.asked = given.render.shot.asked;
  for (const std::string& each : options.outputs) job.outputs.push_back(absolute_output(composition, each));
  job.gpu = given.render.gpu;
  job.scale = options.scale;
  job.threads = options.threads;
  job.memory = options.memory;
  job.by_content = options.by_content;
  job.retries = given.retries;
  job.extra = given.extra;
  job.frames = frames_to_render(composition, given.render.frames);
  return job;
}

// What stands in the way, looked at before anything is submitted, and the frames that are not current.
struct Ahead {
  plan::Outlook outlook;
  std::vector<int64_t> left;
  std::vector<int64_t> drawable;  // current or not
};

Ahead look_ahead(const shot::Composition& composition, const render_farm::Job& job) {
  plan::Planner planner(composition,
                        {job.scale, job.outputs, plan::Existing::current, {}, {}, job.by_content});
  planner.targets().check(job.frames);
  Ahead ahead;
  ahead.outlook = planner.look_ahead(job.frames, [&ahead](const plan::FramePlan& plan) {
    if (!plan.fails) ahead.drawable.push_back(plan.frame);
  });
  for (const int64_t frame : job.frames)
    if (ahead.outlook.kept.count(frame) == 0) ahead.left.push_back(frame);
  return ahead;
}

// What frames take; three of them are rendered here where the journal does not say.
render_farm::Times times_of(const render_farm::Job& job, const std::vector<int64_t>& left) {
  const fs::path journal = render_farm::journal_of(job);
  const render_farm::Times known = render_farm::times_in(journal);
  if (known.each > 0) return known;
  const std::vector<int64_t> tried(left.begin(),
                                   left.begin() + std::min<std::ptrdiff_t>(3, std::ssize(left)));
  std::cerr << "quorvel: rendering frames " << shot::frames_text(tried) << " to see what they take\n";
  std::vector<std::string> words = render_farm::render_words(job);
  words.push_back("--journal=" + journal.string());
  words.push_back("--frames=" + shot::frames_text(tried));
  render_farm::run_program(words);
  return render_farm::times_in(journal);
}

// Some of the frames, from all over, a few in a row: as images of a frame meet those of the next.
std::vector<int64_t> sample(const std::vector<int64_t>& frames) {
  constexpr size_t groups = 16, in_a_row = 4;
  if (frames.size() <= groups * in_a_row) return frames;
  std::vector<int64_t> some;
  some.reserve(groups * in_a_row);
  for (size_t group = 0; group < groups; ++group) {
    const size_t first = group * (frames.size() - in_a_row) / (groups - 1);
    some.insert(some.end(), frames.begin() + static_cast<std::ptrdiff_t>(first),
                frames.begin() + static_cast<std::ptrdiff_t>(first + in_a_row));
  }
  return some;
}

// What a chunk's images come to, on a node with so many processors. Of a device too: the node may have none,
// and draw in its memory.
void predict_memory(const shot::Composition& composition, render_farm::Job& job,
                    const std::vector<int64_t>& frames, int processors) {
  render::RenderOptions options;
  options.scale = job.scale;
  options.outputs = job.outputs;
  options.memory = job.memory;
  options.by_content = job.by_content;
  options.threads = job.threads > 0 ? job.threads : processors;
  options.frames = sample(frames);
  Device device(device_choice(job.gpu));
  const auto memory = predicted(composition, options, device);
  if (!memory) return;
  job.base = std::max(job.base, memory->base);
  job.images = memory->images.sum() / 4 * 5;  // or what comes a little late would be computed twice
}

// Chunks of some frames, and the memory that each takes.
void plan(const shot::Composition& composition, render_farm::Job& job, const FarmCommand& given,
          const std::vector<int64_t>& frames, const Ahead& ahead, int most,
          const render_farm::Machines& machines) {
  const int at_once =
      job.threads > 0 ? std::max(machines.nodes, machines.processors / job.threads) : machines.nodes;
  const auto automatic = [&] {
    return render_farm::automatic_chunk(times_of(job, frames), std::ssize(frames), at_once);
  };
  job.chunks = render_farm::chunks_of(frames, given.chunk > 0 ? given.chunk : automatic(), most);
  predict_memory(composition, job, ahead.drawable, machines.processors / machines.nodes);
}

std::string plural(size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// Waits for the job that checks; the exit code of the verification. Where it left none, as on a full disk or
// cancelled, the frames are verified here.
int wait_for_check(const shot::Composition& composition, const render_farm::Job& job) {
  for (bool live = true; live; std::this_thread::sleep_for(pause)) {
    try {
      render_farm::release_held(job.array_id);
      render_farm::release_held(job.check_id);
      const auto tasks = render_farm::tasks_of(job.check_id);
      live = std::any_of(tasks.begin(), tasks.end(),
                         [](const auto& task) { return render_farm::is_live(task.second); });
    } catch (const render_farm::SchedulerError&) {
      live = true;  // away for a while
    }
  }
  std::ifstream stream(job.folder / "checked");
  std::string id;
  int code = 0;
  if (stream >> id >> code && id == job.check_id) {
    std::cout << std::ifstream(job.folder / "logs" / ("check_" + id + ".log")).rdbuf();
    return code;
  }
  std::cerr << "quorvel: job " << job.check_id
            << ", which was to verify the frames, left nothing; they are verified here\n";
  const render_farm::Verdict verdict =
      render_farm::verify(composition, job.frames, job.outputs, job.scale, job.threads);
  std::cout << render_farm::verdict_text(verdict);
  return verdict.flaws.empty() ? exit_done : exit_some_failed;
}

void refuse_while_live(const render_farm::Job& job) {
  if (job.array_id.empty()) return;
  const auto tasks = render_farm::tasks_of(job.array_id);
  const auto live =
      std::count_if(tasks.begin(), tasks.end(), [](const auto& task) { return is_live(task.second); });
  if (live == 0) return;
  throw UsageError("job " + job.array_id + " has " + plural(static_cast<size_t>(live), "chunk") +
                   " waiting or running; wait for it, or quorvel farm cancel ends it");
}

int hand_over(const shot::Composition& composition, render_farm::Job job, bool wait) {
  std::error_code ignored;
  fs::create_directories(job.folder / "logs");
  fs::remove(job.folder / "cancelled", ignored);
  write_text(job.folder / "render.sh", render_farm::render_script(job));
  write_text(job.folder / "check.sh", render_farm::check_script(job));
  job.array_id = render_farm::submit(job.folder / "render.sh", {});
  try {
    job.check_id = render_farm::submit(job.folder / "check.sh", {"--dependency=afterany:" + job.array_id});
  } catch (const render_farm::SchedulerError&) {
    render_farm::run_program({"scancel", job.array_id});
    throw;
  }
  render_farm::save(job);
  size_t frames = 0;
  for (const render_farm::Chunk& chunk : job.chunks) frames += chunk.size();
  std::cout << "job " << job.array_id << ": " << plural(frames, "frame") << " in "
            << plural(job.chunks.size(), "chunk") << " of up to " << job.chunks.front().size() << ", "
            << render_farm::memory_mib(job) << " MiB each; job " << job.check_id << " checks them\nlogs in "
            << (job.folder / "logs").string() << '\n'
            << std::flush;
  return wait ? wait_for_check(composition, job) : exit_done;
}

// The frames of a job that are not current, planned; nothing, with an exit code, where there is no job to
// make.
int submit_job(const shot::Composition& composition, render_farm::Job job, const FarmCommand& given) {
  if (job.frames.empty()) {
    std::cerr << "quorvel: --frames: " << given.render.frames << " leaves no frame to render\n";
    return exit_nothing;
  }
  const Ahead ahead = look_ahead(composition, job);
  if (ahead.outlook.failing > 0 && !given.render.options.keep_going) {
    std::cerr << report::problems_text(ahead.outlook.problems) << "quorvel: " << ahead.outlook.failing
              << " of " << plural(job.frames.size(), "frame")
              << " cannot be rendered; nothing was submitted (--keep-going submits them all)\n";
    return exit_some_failed;
  }
  if (ahead.left.empty()) {
    std::cout << "every frame stands and is current; nothing was submitted\n";
    return exit_done;
  }
  if (const auto before = render_farm::load(job.folder)) refuse_while_live(*before);
  plan(composition, job, given, ahead.left, ahead, render_farm::most_tasks(),
       render_farm::machines(job.extra));
  return hand_over(composition, std::move(job), given.wait);
}

}  // namespace

int submit(const FarmCommand& given) {
  const shot::Composition composition = given.render.shot.read();
  return submit_job(composition, new_job(composition, given), given);
}

int retry(const FarmCommand& given) {
  const Known known = known_job(given);
  render_farm::release_held(known.job.check_id);
  if (const int released = render_farm::release_held(known.job.array_id)) {
    std::cout << "job " << known.job.array_id << ": " << plural(static_cast<size_t>(released), "chunk")
              << " that a node could not start may start elsewhere\n"
              << std::flush;
    return given.wait ? wait_for_check(known.composition, known.job) : exit_done;
  }
  return submit_job(known.composition, known.job, given);
}

int status(const FarmCommand& given) {
  const bool terminal = isatty(STDOUT_FILENO) != 0;
  std::ostream bare(report::bare_buffer(std::cout));
  while (true) {
    const auto [composition, job] = known_job(given);
    std::optional<std::map<int, render_farm::Task>> tasks;
    try {
      tasks = render_farm::tasks_of(job.array_id);
    } catch (const render_farm::SchedulerError& error) {
      std::cerr << "quorvel: " << error.what() << "; this is what journal and files say\n";
    }
    const render_farm::Status now = render_farm::status_of(composition, job, tasks ? &*tasks : nullptr);
    if (given.watch && terminal) bare << "\033[H\033[2J" << std::flush;
    std::cout << (given.json ? render_farm::status_json(job, now) : render_farm::status_text(job, now))
              << std::flush;
    if (!given.watch || now.ended) return now.failed > 0 ? exit_some_failed : exit_done;
    std::this_thread::sleep_for(pause);
  }
}

int cancel(const FarmCommand& given) {
  const render_farm::Job job = known_job(given).job;
  // First, so that no chunk puts itself back.
  write_text(job.folder / "cancelled", job.array_id + "\n");
  const render_farm::Ended ended = render_farm::run_program({"scancel", job.array_id, job.check_id});
  if (ended.code != 0) throw render_farm::SchedulerError("scancel refused");
  std::cout << "job " << job.array_id << " is cancelled; frames that stand stay\n";
  return exit_done;
}

namespace {

// A script may be made where no scheduler is.
render_farm::Machines machines_here(const render_farm::Job& job) {
  try {
    return render_farm::machines(job.extra);
  } catch (const render_farm::SchedulerError&) {
    return {};
  }
}

}  // namespace

int export_job(const FarmCommand& given) {
  const shot::Composition composition = given.render.shot.read();
  render_farm::Job job = new_job(composition, given);
  if (job.frames.empty()) {
    std::cerr << "quorvel: --frames: " << given.render.frames << " leaves no frame to render\n";
    return exit_nothing;
  }
  constexpr int most_of_a_template = 1024, most_of_an_array = 1000;
  const bool open_job = given.format == "openjd";
  plan(composition, job, given, job.frames, look_ahead(composition, job),
       open_job ? most_of_a_template : most_of_an_array,
       open_job ? render_farm::Machines() : machines_here(job));
  if (open_job) {
    std::cout << render_farm::open_job(job, given.task_chunking, given.yaml);
    return exit_done;
  }
  fs::create_directories(job.folder / "logs");  // tasks without a place for their logs fail
  std::cout << render_farm::render_script(job);
  return exit_done;
}

}  // namespace host::cli
