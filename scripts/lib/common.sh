# shellcheck shell=bash
# Shared by every script: where things lie, progress messages, and running a command as the administrator.
# Sourced, never run. Sets REPO and CACHE.

REPO=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)
CACHE=${ORVANE_CACHE:-${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/orvane}
export REPO CACHE

# Debian's own programs, which the scripts install, come before others of the same name: some version managers have scripts in
# their places that take longer to start than most of what is started here takes to run.
PATH=/usr/bin:/bin:$PATH

# say TEXT...: one progress line on standard error, with the seconds since the script began.
say() {
  printf '[%4ds] %s\n' "$SECONDS" "$*" >&2
}

# die TEXT...: an error line, then the end of the script.
die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# asRoot COMMAND ARGS...: runs a command as root, by sudo where we are not root ourselves.
asRoot() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo --preserve-env=ORVANE_CACHE,DEBIAN_FRONTEND "$@"
  else
    die "$1 needs root: run as root or install sudo"
  fi
}

# stoppable COMMAND ARGS...: runs a command or function so that an interrupt of the script, by the keyboard or by a signal
# to the script alone, ends it at once with everything that it started. Returns its status.
stoppable() {
  local status=0
  # Job control gives the command a process group of its own, by which all of it can be reached.
  set -m
  { catchSignals; "$@"; } <&0 &
  JOB=$!
  set +m
  wait "$JOB" || status=$?
  JOB=
  return "$status"
}

# endJobs: ends what runs in the background, with all that it started.
endJobs() {
  local job
  for job in $JOB $BACKGROUND; do
    asRoot kill -TERM -- "-$job" 2>/dev/null || true
  done
  for job in $JOB $BACKGROUND; do
    wait "$job" 2>/dev/null || true
  done
  JOB='' BACKGROUND=''
}

# stopJobs STATUS: what an interrupt does; ends the script with STATUS.
stopJobs() {
  trap '' INT TERM HUP
  endJobs
  exit "$1"
}

# catchSignals: what the script itself and every part of it that goes on in the background begins with.
catchSignals() {
  JOB='' BACKGROUND=''
  trap 'stopJobs 130' INT
  trap 'stopJobs 143' TERM
  trap 'stopJobs 129' HUP
}
catchSignals

# whileSaying TEXT LOGFILE COMMAND ARGS...: runs a long command with its output in LOGFILE and says every 20 seconds
# that it is still at work. On failure the end of the log is shown. Returns the command's status.
whileSaying() {
  local text=$1 log=$2 status=0
  mkdir -p "$(dirname "$log")"
  say "$text"
  stoppable withTicker "$@" || status=$?
  if [ "$status" -ne 0 ]; then
    say "failed with status $status: $text (log: $log)"
    tail -n 25 "$log" >&2
  fi
  return "$status"
}

withTicker() {
  local text=$1 log=$2 status=0 begun=$SECONDS feed
  shift 2
  # It ends when nobody is left who could write to it, so also when this shell is killed. A "sleep" would outlive it, and hold
  # the locks that it inherits for the rest of its time.
  exec {feed}> >(
    until read -r -t 20 || [ $? -le 128 ]; do # more than 128: the time is over
      say "  ... $text ($((SECONDS - begun)) s): $(tail -n 1 "$log" 2>/dev/null | tr -d '\r' | cut -c -100)"
    done
  )
  local ticker=$!
  "$@" >"$log" 2>&1 </dev/null {feed}>&- || status=$?
  exec {feed}>&-
  wait "$ticker" 2>/dev/null
  return "$status"
}

# onlyOne NAME COMMAND ARGS...: runs the command while holding a lock in the cache, so that two scripts that start at
# the same time do not build the same thing twice. The lock is not inherited by the command's own background processes.
onlyOne() {
  local name=$1 status=0 lock
  shift
  mkdir -p "$CACHE/locks"
  exec {lock}>"$CACHE/locks/$name"
  if ! flock -n "$lock"; then
    say "waiting for another script that prepares $name"
    flock "$lock"
  fi
  "$@" || status=$?
  exec {lock}>&-
  return "$status"
}
