# shellcheck shell=bash
# Shared by the commands in this folder; sourced, never run. The commands work from any directory
# and change to the root of the source tree.
set -euo pipefail

scripts=$(CDPATH='' cd -P -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname -- "$scripts")
jobs=$(nproc)

say() { printf '%s: %s\n' "${0##*/}" "$*" >&2; }

fail() {
  say "$*"
  exit 1
}

# Shows what a command prints only when it fails.
quietly() {
  local log status=0
  log=$(mktemp)
  "$@" >"$log" 2>&1 </dev/null || status=$?
  ((status == 0)) || cat -- "$log" >&2
  rm -f -- "$log"
  return "$status"
}

# Configures a preset and builds it, or the targets named alone.
build() {  # PRESET [TARGET...]
  local preset=$1
  shift
  cmake --preset "$preset"
  cmake --build --preset "$preset" -j "$jobs" ${1+--target "$@"}
}

# The comment at the head of a command is its help.
case ${1-} in
  -h | --help)
    sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
    exit
    ;;
esac

# A path that the user gave from elsewhere must hold where the commands and the tests run.
if [[ -n ${TIKA_SERVER_JAR-} ]]; then
  TIKA_SERVER_JAR=$(realpath -m -- "$TIKA_SERVER_JAR")
  export TIKA_SERVER_JAR
fi
cd -- "$root"
