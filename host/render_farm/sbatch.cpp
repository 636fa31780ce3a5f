#include "host/render_farm/sbatch.h"

#include "host/shot/frames.h"

namespace host::render_farm {
namespace {

// A word as a shell takes it for what it is.
std::string shell_word(const std::string& word) {
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

std::string shell_words(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + shell_word(word);
  return text;
}

std::string directives(const Job& job, const std::string& name, const std::string& log) {
  std::string folder;  // a percent sign begins what the scheduler replaces
  for (const char c : (job.folder / "logs").string()) folder += c == '%' ? "%%" : std::string(1, c);
  std::string text = "#!/bin/bash\n#SBATCH --job-name=" + shell_word("quorvel-" + name) +
                     "\n#SBATCH --output=" + shell_word(folder + "/" + log) +
                     "\n#SBATCH --open-mode=append\n#SBATCH --requeue\n#SBATCH --nodes=1 --ntasks=1\n";
  text += job.threads > 0 ? "#SBATCH --cpus-per-task=" + std::to_string(job.threads) + "\n"
                          : "#SBATCH --exclusive\n";
  for (const std::string& each : job.extra) text += "#SBATCH " + each + "\n";
  return text;
}

// Behind the variables that render_script sets.
constexpr const char* body = R"(
chunk=${chunks[$SLURM_ARRAY_TASK_ID]}
try=${SLURM_RESTART_COUNT:-0}
# Not $SLURM_JOB_ID, which is the whole array's in its last task.
task=${SLURM_ARRAY_JOB_ID}_$SLURM_ARRAY_TASK_ID
export QUORVEL_TASK=$task.$try
child= asked= again=
trap 'asked=1 again=1; [ -z "$child" ] || kill -TERM "$child" 2>/dev/null' TERM

# Renders frames; `code` is how the renderer ended. A signal ends the waiting, not the renderer.
render() {
  local ended
  code=127
  [ -z "$asked" ] || { code=75; return; }
  "${words[@]}" --journal="$journal" --frames="$1" &
  child=$!
  [ -z "$asked" ] || kill -TERM "$child" 2>/dev/null  # asked before there was a child to tell
  while :; do
    again=
    wait "$child"
    ended=$?
    [ "$ended" -eq 127 ] || code=$ended
    [ -n "$again" ] || break
  done
  child=
}

# The frames of a list, one by one.
frames_of() {
  local part
  for part in ${1//,/ }; do
    if [[ $part =~ ^(-?[0-9]+)-(-?[0-9]+)$ ]]; then
      seq "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
    else
      echo "$part"
    fi
  done
}

# The scheduler may be away for a while. Who is cancelled stays away, and so does who hung while the chunk was
# given to another node, where it runs by now.
put_back() {
  local state restarts
  for _ in {1..100}; do
    [ ! -e "$folder/cancelled" ] || return
    if read -r state restarts < <(squeue -h -j "$task" -O State:30,RestartCnt:10); then
      [ "$state" = RUNNING ] && [ "$restarts" -eq "$try" ] || return
      echo "chunk $SLURM_ARRAY_TASK_ID ($chunk): try $try ended with code $code: back into the queue"
      if scontrol requeue "$task"; then
        sleep 600 &  # until the scheduler ends this script
        wait $!
        return
      fi
    fi
    sleep 3 &
    wait $!
  done
}

# What a node could not start the scheduler holds for somebody to look at.
release_held() {
  local held reason
  while read -r held reason; do
    [[ $reason != "launch failed"* ]] || scontrol release "$held"
  done < <(squeue -h -r -t PENDING -j "$SLURM_ARRAY_JOB_ID" -o '%i %r')
}

if [ "$try" -lt "$retries" ]; then
  render "$chunk"
else
  # The last try: a frame that ends the renderer takes no other along.
  worst=0
  for frame in $(frames_of "$chunk"); do
    render "$frame"
    [ "$code" -eq 0 ] || worst=$code
    [ -z "$asked" ] || break
  done
  code=$worst
fi
# 0 to 4 would come again.
[ "$code" -le 4 ] || [ "$try" -ge "$retries" ] || put_back
release_held
exit "$code"
)";

}  // namespace

std::string render_script(const Job& job) {
  std::string text = directives(job, job.name, "%A_%a.log");
  text += "#SBATCH --array=0-" + std::to_string(job.chunks.size() - 1) + "\n#SBATCH --signal=B:TERM@60\n";
  text += "#SBATCH --mem=" + std::to_string(memory_mib(job)) + "M\n";
  text += "# Renders the frames of " + job.composition.string() + " in chunks.\n\n";
  text += "folder=" + shell_word(job.folder.string()) + "\njournal=" + shell_word(journal_of(job).string()) +
          "\nretries=" + std::to_string(job.retries) + "\nwords=(" + shell_words(render_words(job)) +
          ")\nchunks=(";
  for (const Chunk& chunk : job.chunks) text += "\n  " + shot::frames_text(chunk);
  return text + "\n)\n" + body;
}

std::string check_script(const Job& job) {
  return directives(job, job.name + "-check", "check_%j.log") + "\n" + shell_words(verify_words(job)) +
         " --frames=" + shot::frames_text(job.frames) + "\ncode=$?\necho \"$SLURM_JOB_ID $code\" >" +
         shell_word((job.folder / "checked").string()) + "\nexit $code\n";
}

}  // namespace host::render_farm
