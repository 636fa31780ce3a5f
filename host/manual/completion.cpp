#include "host/manual/completion.h"

namespace host::manual {
namespace {

constexpr const char* bash = R"(# What bash completes behind quorvel; made by `quorvel completion bash`.
_quorvel() {
  local IFS=$'\n' words=() lines=() line word last="" i
  # Words part at = and :, which values are full of.
  for ((i = 1; i <= COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]//[\"\'\\]/}
    if [[ ${#words[@]} -gt 0 && ( $word == [=:]* || $last == *[=:] ) ]]; then
      words[-1]+=$word
    else
      words+=("$word")
    fi
    last=$word
  done
  local begun=${words[-1]} part=${words[-1]##*[=:]}
  COMPREPLY=()
  mapfile -t lines < <("${COMP_WORDS[0]/#\~/$HOME}" complete -- "${words[@]}" 2>/dev/null)
  for line in "${lines[@]}"; do
    if [[ $line == :files ]]; then
      compopt -o filenames 2>/dev/null
      COMPREPLY+=($(compgen -f -- "$part"))
    else
      word=${line%%$'\t'*}
      COMPREPLY+=("${word#"${begun%"$part"}"}")
    fi
  done
  if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *[=.] ]]; then compopt -o nospace 2>/dev/null; fi
}
complete -F _quorvel quorvel
)";

constexpr const char* zsh = R"(#compdef quorvel
# What zsh completes behind quorvel; made by `quorvel completion zsh`.
_quorvel() {
  local line files=0
  local -a lines texts shown open_texts open_shown
  lines=("${(@f)$(${(Q)words[1]/#\~/$HOME} complete -- "${(@Q)words[2,CURRENT]}" 2>/dev/null)}")
  for line in $lines; do
    if [[ $line == :files ]]; then
      files=1
    elif [[ ${line%%$'\t'*} == *[=.] ]]; then
      open_texts+=("${line%%$'\t'*}")
      open_shown+=("${line/$'\t'/  -- }")
    else
      texts+=("${line%%$'\t'*}")
      shown+=("${line/$'\t'/  -- }")
    fi
  done
  (( ${#texts} )) && compadd -l -d shown -a texts
  (( ${#open_texts} )) && compadd -l -S '' -d open_shown -a open_texts
  if (( files )); then
    compset -P '*='
    _files
  fi
}
if [[ ${funcstack[1]} == _quorvel ]]; then
  _quorvel "$@"
else
  compdef _quorvel quorvel
fi
)";

constexpr const char* fish = R"(# What fish completes behind quorvel; made by `quorvel completion fish`.
function __quorvel_complete
    set -l words (commandline -opc) (commandline -ct)
    for line in ($words[1] complete -- $words[2..-1] 2>/dev/null)
        if test "$line" = :files
            set -l front (string match -r '^.*=' -- $words[-1])
            for path in (__fish_complete_path (string replace -r '^.*=' '' -- $words[-1]))
                echo "$front$path"
            end
        else
            echo $line
        end
    end
end
complete -c quorvel -f -a '(__quorvel_complete)'
)";

}  // namespace

const std::vector<std::string>& shells() {
  static const std::vector<std::string> names = {"bash", "zsh", "fish"};
  return names;
}

std::string completion_script(const std::string& shell) {
  return shell == "bash" ? bash : shell == "zsh" ? zsh : shell == "fish" ? fish : "";
}

}  // namespace host::manual
